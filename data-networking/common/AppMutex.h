// The application mutex: one guard locks it, traces it and unlocks it.
#pragma once

#include <pthread.h>

#include "common/ThreadSafety.h"
#include "common/Trace.h"

namespace quorvel {

// NetCMAppMutex is a plain pthread mutex, because it is exported; this stands for it where the compiler
// checks locks.
class QV_CAPABILITY("NetCMAppMutex") AppMutexCapability {};
inline constexpr AppMutexCapability app_mutex;

// Locks for the life of the guard, threads of the application in the order of their coming. A lock that fails
// is traced, and the work goes on as though it were held.
class QV_SCOPED_CAPABILITY AppMutexGuard {
  public:
    explicit AppMutexGuard(Here here) QV_ACQUIRE(app_mutex);
    ~AppMutexGuard() QV_RELEASE();
    AppMutexGuard(const AppMutexGuard&) = delete;
    AppMutexGuard& operator=(const AppMutexGuard&) = delete;

    // The calling thread's kernel thread id.
    int32_t thread_id() const { return thread_id_; }

  private:
    Here here_;
    int32_t thread_id_;
    bool lent_;
    bool through_gate_;
};

// Why a receiver cannot simply wait for the mutex: the last thread to deregister holds it while it joins the
// receiver. While that thread waits in the join it lends its lock to the receiver, which finishes what it has
// begun as the only thread in the critical section.
class ReceiverScope {
  public:
    ReceiverScope();
    ~ReceiverScope();
};
void lend_to_receiver(bool lending) QV_REQUIRES(app_mutex);

}  // namespace quorvel
