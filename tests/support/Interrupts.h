// Signals that reach a thread while it waits inside the library.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <csignal>

#include "support/AppThread.h"
#include "support/Eventually.h"

namespace quorvel::test {

// Catches SIGUSR1 as long as it lives, without restarting what the signal interrupts.
class Interrupts {
  public:
    Interrupts() {
        caught_ = 0;
        struct sigaction action = {};
        action.sa_handler = [](int) { ++caught_; };
        sigaction(SIGUSR1, &action, &before_);
    }
    ~Interrupts() { sigaction(SIGUSR1, &before_, nullptr); }
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    static void send(int32_t tid) { syscall(SYS_tgkill, getpid(), tid, SIGUSR1); }
    static size_t caught() { return caught_; }

    // Interrupts what the thread was started with until it has come back: nobody can tell from outside when
    // it has begun to wait.
    static bool end(AppThread& thread) {
        return eventually([&] {
            if (!thread.done())
                send(thread.tid());
            return thread.done();
        });
    }

  private:
    static inline std::atomic<size_t> caught_{0};
    struct sigaction before_ = {};
};

}  // namespace quorvel::test
