// The application mutex: one guard locks it, traces it and unlocks it.
#pragma once

#include <pthread.h>

#include "common/AppMutexCapability.h"
#include "common/CancelHold.h"
#include "common/Lock.h"
#include "common/ThreadSafety.h"
#include "common/Trace.h"

namespace quorvel {

// What the client table holds about calls and pending requests changes under this small lock, besides: the
// application mutex may be held for a minute by a request that waits for its server, and the end of the
// server cannot wait for that. Taken last, and nothing is called while it is held: no callback, no trace, no
// system call.
inline constinit Mutex table_lock;

// Locks for the life of the guard, threads in the order of their coming, the receiver among them. A lock that
// fails is traced, and the work goes on as though it were held.
class QV_SCOPED_CAPABILITY AppMutexGuard {
  public:
    explicit AppMutexGuard(Here here) QV_ACQUIRE(app_mutex);
    ~AppMutexGuard() QV_RELEASE();
    AppMutexGuard(const AppMutexGuard&) = delete;
    AppMutexGuard& operator=(const AppMutexGuard&) = delete;

    // The calling thread's kernel thread id.
    int32_t thread_id() const { return thread_id_; }

  private:
    int lock();
    int lock_as_receiver();

    CancelHold cancel_;
    Here here_;
    int32_t thread_id_;
    uint32_t process_;
    bool through_gate_ = false;
    bool borrowed_ = false;
};

// Around the life of a receiver thread, which may borrow the mutex.
class ReceiverScope {
  public:
    ReceiverScope();
    ~ReceiverScope();
};

// Who waits for a receiver while it holds the mutex lends it: the receiver finishes what it has begun as the
// only thread in the critical section. At the end the lender waits until it has the lock back.
class LentToReceiver {
  public:
    LentToReceiver() QV_REQUIRES(app_mutex);
    ~LentToReceiver();
    LentToReceiver(const LentToReceiver&) = delete;
    LentToReceiver& operator=(const LentToReceiver&) = delete;
};

// In the only thread of a forked process: the mutex and what stands in front of it are free, and guards that
// the thread has still on its stack are of the parent's.
void app_mutex_in_child();

}  // namespace quorvel
