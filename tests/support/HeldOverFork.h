// Locks of the tests, in a process that forks while its other threads are at work.
#pragma once

#include <pthread.h>

#include <mutex>

namespace quorvel::test {

// Who forks has the lock for that moment, so that the child finds it free. Said once for each.
template <std::mutex& (*Lock)()>
void hold_over_fork() {
    pthread_atfork([] { Lock().lock(); }, [] { Lock().unlock(); }, [] { Lock().unlock(); });
}

}  // namespace quorvel::test
