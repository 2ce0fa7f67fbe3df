#include "common/AppMutex.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>

#include "common/TicketGate.h"
#include "quorvel/NetCM.h"

extern "C" {
pthread_mutex_t NetCMAppMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
void* EvtDeliveryHandle = nullptr;
}

namespace quorvel {
namespace {

constexpr long kSliceNanoseconds = 20'000'000;

std::atomic<bool> lent_to_receiver{false};
thread_local bool is_receiver = false;

// In front of the mutex: by itself it goes to whoever asks first, which is the thread that has just unlocked
// it and comes back, again and again.
TicketGate gate;
thread_local bool is_through_gate = false;

// The receiver passes by, since it must not stand behind a thread that waits for it. So does whoever has the
// mutex: nested in the library, or locked by the application itself, for which the one in the gate may wait.
bool passes_gate(int32_t thread_id) {
    return !is_receiver && !is_through_gate &&
           __atomic_load_n(&NetCMAppMutex.__data.__owner, __ATOMIC_RELAXED) != thread_id;
}

int lock_for_a_slice() {
#if defined(__SANITIZE_THREAD__)
    constexpr clockid_t clock = CLOCK_REALTIME;  // the sanitizer does not know pthread_mutex_clocklock
#else
    constexpr clockid_t clock = CLOCK_MONOTONIC;
#endif
    timespec until{};
    clock_gettime(clock, &until);
    until.tv_nsec += kSliceNanoseconds;
    if (until.tv_nsec >= 1'000'000'000) {
        until.tv_nsec -= 1'000'000'000;
        ++until.tv_sec;
    }
#if defined(__SANITIZE_THREAD__)
    return pthread_mutex_timedlock(&NetCMAppMutex, &until);
#else
    return pthread_mutex_clocklock(&NetCMAppMutex, clock, &until);
#endif
}

// The result of the lock; `lent` says that the holder waits for this thread and has lent it the lock.
int lock_as_receiver(bool& lent) {
    int result = pthread_mutex_trylock(&NetCMAppMutex);
    while (result == EBUSY || result == ETIMEDOUT) {
        if (lent_to_receiver.load(std::memory_order_acquire)) {
            lent = true;
            return 0;
        }
        result = lock_for_a_slice();
    }
    return result;
}

}  // namespace

AppMutexGuard::AppMutexGuard(Here here) QV_NO_THREAD_SAFETY_ANALYSIS
    : here_(here),
      thread_id_(static_cast<int32_t>(syscall(SYS_gettid))),
      lent_(false),
      through_gate_(passes_gate(thread_id_)) {
    QV_TRACE_AT(here_, 0, "Thread [%d] trying to lock the Mutex \n", thread_id_);
    if (through_gate_) {
        gate.enter();
        is_through_gate = true;
    }
    const int result = is_receiver ? lock_as_receiver(lent_) : pthread_mutex_lock(&NetCMAppMutex);
    if (result == 0)
        QV_TRACE_AT(here_, 0, "Mutex locked by thread [%d] \n", thread_id_);
    else if (result == EDEADLK)
        QV_TRACE_AT(here_, 2, "Mutex is already locked by the same thread \n");
    else
        QV_TRACE_AT(here_, 2, "Error locking mutex. Error = %d \n", result);
}

AppMutexGuard::~AppMutexGuard() QV_NO_THREAD_SAFETY_ANALYSIS {
    const int result = lent_ ? 0 : pthread_mutex_unlock(&NetCMAppMutex);
    if (through_gate_) {
        is_through_gate = false;
        gate.leave();
    }
    if (result == 0)
        QV_TRACE_AT(here_, 0, "Mutex unlocked by thread [%d] \n", thread_id_);
    else
        QV_TRACE_AT(here_, 2, "Error unlocking mutex. Error = %d \n", result);
}

ReceiverScope::ReceiverScope() {
    is_receiver = true;
}
ReceiverScope::~ReceiverScope() {
    is_receiver = false;
}

void lend_to_receiver(bool lending) {
    lent_to_receiver.store(lending, std::memory_order_release);
}

}  // namespace quorvel
