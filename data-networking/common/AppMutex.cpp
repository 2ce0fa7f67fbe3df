#include "common/AppMutex.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>

#include "common/Exported.h"
#include "common/Process.h"
#include "common/TicketGate.h"
#include "quorvel/NetCM.h"

extern "C" {
pthread_mutex_t NetCMAppMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
void* EvtDeliveryHandle = nullptr;
}

pthread_mutex_t* quorvel::exported::app_mutex = &NetCMAppMutex;

namespace quorvel {
namespace {

constexpr long kSliceNanoseconds = 20'000'000;

// In front of the mutex: by itself it goes to whoever asks first, which is the thread that has just unlocked
// it and comes back, again and again.
TicketGate gate;

// The lock as its holder lends it. Whoever borrows holds `borrower`.
std::atomic<bool> lent{false};
Mutex borrower;

struct OfThread {
    bool is_receiver;
    bool is_through_gate;
    int borrowed;  // how many guards deep
};
thread_local OfThread self = {};

bool is_lent() {
    return lent.load();
}

// Whoever has the mutex passes the gate by: nested in the library, or locked by the application itself, for
// which the one in the gate may wait.
bool passes_gate(int32_t thread_id) {
    return self.is_through_gate ||
           __atomic_load_n(&exported::app_mutex->__data.__owner, __ATOMIC_RELAXED) == thread_id;
}

bool borrow() QV_NO_THREAD_SAFETY_ANALYSIS {  // given back by the guard
    borrower.lock();
    if (is_lent())  // not reached: only between two steps
        return true;
    borrower.unlock();  // not reached: only between two steps
    return false;       // not reached: only between two steps
}

int lock_for_a_slice() {
#if defined(__SANITIZE_THREAD__)
    constexpr clockid_t clock = CLOCK_REALTIME;  // the sanitizer does not know pthread_mutex_clocklock
#else
    constexpr clockid_t clock = CLOCK_MONOTONIC;
#endif
    timespec until{};
    clock_gettime(clock, &until);
    constexpr long kSecond = 1'000'000'000;
    const long later = until.tv_nsec + kSliceNanoseconds;
    until.tv_sec += later / kSecond;
    until.tv_nsec = later % kSecond;
#if defined(__SANITIZE_THREAD__)
    return pthread_mutex_timedlock(exported::app_mutex, &until);
#else
    return pthread_mutex_clocklock(exported::app_mutex, clock, &until);
#endif
}

}  // namespace

AppMutexGuard::AppMutexGuard(Here here) QV_NO_THREAD_SAFETY_ANALYSIS
    : here_(here),
      thread_id_(static_cast<int32_t>(syscall(SYS_gettid))),
      process_(forks_behind()) {
    QV_TRACE_AT(here_, 0, "Thread [%d] trying to lock the Mutex \n", thread_id_);
    const int result = self.is_receiver ? lock_as_receiver() : lock();
    if (result == 0)
        QV_TRACE_AT(here_, 0, "Mutex locked by thread [%d] \n", thread_id_);
    else if (result == EDEADLK)
        QV_TRACE_AT(here_, 2, "Mutex is already locked by the same thread \n");
    else
        QV_TRACE_AT(here_, 2, "Error locking mutex. Error = %d \n", result);
}

int AppMutexGuard::lock() {
    if (!passes_gate(thread_id_)) {
        gate.enter();
        self.is_through_gate = through_gate_ = true;
    }
    return pthread_mutex_lock(exported::app_mutex);
}

// The receiver cannot simply wait: whoever has the mutex may wait for the receiver, and lend it.
int AppMutexGuard::lock_as_receiver() {
    borrowed_ = self.borrowed > 0 || (is_lent() && borrow());
    while (!borrowed_ && !through_gate_ && !passes_gate(thread_id_)) {
        through_gate_ = gate.enter_unless(is_lent);
        borrowed_ = !through_gate_ && borrow();  // not reached: only between two steps
    }
    self.is_through_gate |= through_gate_;
    int result = borrowed_ ? 0 : pthread_mutex_trylock(exported::app_mutex);
    while (result == EBUSY || result == ETIMEDOUT) {
        borrowed_ = is_lent() && borrow();  // not reached: only between two steps
        result = borrowed_ ? 0 : lock_for_a_slice();
    }
    if (borrowed_)
        ++self.borrowed;
    return result;
}

AppMutexGuard::~AppMutexGuard() QV_NO_THREAD_SAFETY_ANALYSIS {
    // A child of a fork, which began inside this guard, has no lock of ours.
    if (process_ != forks_behind())
        return;
    int result = 0;
    if (!borrowed_)
        result = pthread_mutex_unlock(exported::app_mutex);
    else if (--self.borrowed == 0)
        borrower.unlock();
    if (through_gate_) {
        self.is_through_gate = false;
        gate.leave();
    }
    if (result == 0)
        QV_TRACE_AT(here_, 0, "Mutex unlocked by thread [%d] \n", thread_id_);
    else
        QV_TRACE_AT(here_, 2, "Error unlocking mutex. Error = %d \n", result);
}

ReceiverScope::ReceiverScope() {
    self.is_receiver = true;
}
ReceiverScope::~ReceiverScope() {
    self.is_receiver = false;
}

LentToReceiver::LentToReceiver() {
    lent.store(true);
    gate.look_again();
}

LentToReceiver::~LentToReceiver() {
    lent.store(false);
    const Lock back(borrower);
}

// Whoever has held them is not in this process.
void app_mutex_in_child() QV_NO_THREAD_SAFETY_ANALYSIS {
    constexpr pthread_mutex_t free_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    *exported::app_mutex = free_mutex;
    table_lock.unlock();
    borrower.unlock();
    lent.store(false);
    gate.reset();
    self = {};
}

}  // namespace quorvel
