// Access to the client table.
#pragma once

#include <atomic>
#include <cstdint>

#include "common/AppMutex.h"
#include "common/Exported.h"
#include "quorvel/NetCM.h"

namespace quorvel {

inline const pthread_t kNoThread = static_cast<pthread_t>(-1);
inline constexpr int kNoDescriptor = -1;

// The table, for whoever holds the mutex. What it says of calls, callbacks and pending requests is looked at
// and changed under `table_lock` besides.
inline NetCMClientAppInfo& table() QV_REQUIRES(app_mutex) {
    return *exported::app_info;
}

// Some fields are also read where no lock is held: IsRegistered, ClientId and thread ids by the checks before
// a lock, RecvThreadId and AsyncSockFd by the receiver. Those, and what diagnosis looks at from outside, are
// always written, and there read, through these two.
template <class T>
T load(const T& field) {
    return std::atomic_ref<T>(const_cast<T&>(field)).load(std::memory_order_acquire);
}
template <class T>
void store(T& field, std::type_identity_t<T> value) {
    std::atomic_ref<T>(field).store(value, std::memory_order_release);
}

// How far a call's closing has come. Above Suspended the call counts as closing.
enum CallState : uint32_t { kResumed = 3, kSuspended = 4, kStopSent = 5, kKillSent = 7 };

// Whether the process is registered with the server. Needs no lock.
bool client_is_registered();

// The slot of a profile in a thread's entry, the entry of a thread in a call; -1 when there is none. What is
// free is found as -1.
int32_t slot_of(const NetCMThreadProf& entry, int32_t profile) QV_REQUIRES(table_lock);
int32_t entry_of(const NetCMCallInfo& call, int32_t thread_index) QV_REQUIRES(table_lock);

// Nobody holds the profile -1, which a server may name and which fills the empty slots.
inline bool holds(const NetCMThreadProf& entry, int32_t profile) QV_REQUIRES(table_lock) {
    return profile != -1 && slot_of(entry, profile) >= 0;
}
inline bool in_use(const NetCMThreadProf& entry) QV_REQUIRES(table_lock) {
    return load(entry.ThreadIndex) != -1;
}
bool holds_nothing(const NetCMThreadProf& entry) QV_REQUIRES(table_lock);
void release(NetCMThreadProf& entry) QV_REQUIRES(table_lock);
int count_users(const NetCMCallInfo& call) QV_REQUIRES(table_lock);
int count_profiles(const NetCMThreadProf& entry) QV_REQUIRES(table_lock);

// The number of the entry in use that belongs to the thread with that kernel id and holds the profile, or -1.
int32_t entry_of_thread(const NetCMCallInfo& call, int32_t tid, int32_t profile) QV_REQUIRES(table_lock);

// The callback of a thread's record; null when it has none.
NetCMEventCallback callback_of(int32_t thread_index) QV_REQUIRES(table_lock);

// The first free record of a thread: 0 and its index, or NETCM_ERR_NO_FREE_ENTRY.
uint32_t find_free_thread(int32_t& index) QV_REQUIRES(app_mutex);

// The trace of a profile that has been taken out of an entry of a call.
void trace_deleted(int32_t profile, int32_t entry);
// The trace of a thread's entry that was looked for in a call.
void trace_entry(int32_t entry, bool found);
// The trace of a profile that was looked for in an entry.
void trace_looked_for(int32_t profile, bool found);

// Nobody waits any more for answers to kills and tunnel requests; or to those and to proper-profile queries.
void forget_kills_and_tunnels() QV_REQUIRES(table_lock);
void forget_pending_requests() QV_REQUIRES(table_lock);

}  // namespace quorvel
