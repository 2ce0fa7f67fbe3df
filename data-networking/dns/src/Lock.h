// The resolver's own locks: plain mutexes that the compiler checks.
#pragma once

#include <pthread.h>

#include "common/ThreadSafety.h"

namespace quorvel {

class QV_CAPABILITY("mutex") Mutex {
  public:
    void lock() QV_ACQUIRE() { pthread_mutex_lock(&mutex_); }
    void unlock() QV_RELEASE() { pthread_mutex_unlock(&mutex_); }

  private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
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
