// Locks of the library's own, which the compiler checks. (The application's mutex is another matter: it is
// exported, and recursive.)
#pragma once

#include <atomic>
#include <cstdint>

#include "common/ThreadSafety.h"

namespace quorvel {

// Taken and given back by one atomic operation each, in place, as long as nobody waits: an answer from the
// host cache takes hardly longer than the two calls to the C library that a mutex of its kind would cost.
class QV_CAPABILITY("mutex") Mutex {
  public:
    void lock() QV_ACQUIRE() {
        uint32_t free = kFree;
        if (!state_.compare_exchange_strong(free, kTaken, std::memory_order_acquire)) [[unlikely]]
            wait();
    }
    void unlock() QV_RELEASE() {
        if (state_.exchange(kFree, std::memory_order_release) == kAwaited) [[unlikely]]
            wake();
    }

  private:
    static constexpr uint32_t kFree = 0;
    static constexpr uint32_t kTaken = 1;
    static constexpr uint32_t kAwaited = 2;  // taken, and somebody may sleep until it is free

    void wait();
    void wake();

    std::atomic<uint32_t> state_{kFree};
};

class QV_SCOPED_CAPABILITY Lock {
  public:
    explicit Lock(Mutex& mutex) QV_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~Lock() QV_RELEASE() { mutex_.unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    Mutex& mutex_;
};

}  // namespace quorvel
