// Access to the client table.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "common/AppMutex.h"
#include "quorvel/NetCM.h"

namespace quorvel {

inline const pthread_t kNoThread = static_cast<pthread_t>(-1);
inline constexpr int kNoDescriptor = -1;

// The table, for whoever holds the mutex.
inline NetCMClientAppInfo& table() QV_REQUIRES(app_mutex) {
    return g_NetCMClientAppInfo;
}

// Some fields are also read where the mutex is not held: IsRegistered, ClientId and thread ids by the checks
// before a lock, RecvThreadId and AsyncSockFd by the receiver, and by name resolution, which must not wait
// for an exchange of another thread, which calls hold which profiles. They are always written, and there
// read, through these two.
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

// The call of that id that is in use, or null.
NetCMCallInfo* find_call(uint32_t call_id) QV_REQUIRES(app_mutex);
int32_t index_of(const NetCMCallInfo& call);

// The slot of a profile in a thread's entry, the entry of a thread in a call; -1 when there is none. What is
// free is found as -1.
int32_t slot_of(const NetCMThreadProf& entry, int32_t profile);
int32_t entry_of(const NetCMCallInfo& call, int32_t thread_index);

// Nobody holds the profile -1, which a server may name and which fills the empty slots.
inline bool holds(const NetCMThreadProf& entry, int32_t profile) {
    return profile != -1 && slot_of(entry, profile) >= 0;
}
inline bool in_use(const NetCMThreadProf& entry) {
    return load(entry.ThreadIndex) != -1;
}
bool holds_nothing(const NetCMThreadProf& entry);
void release(NetCMThreadProf& entry);
int count_users(const NetCMCallInfo& call);

// The entry of a call that belongs to the thread with that kernel id and holds the profile, or null.
const NetCMThreadProf* entry_of_thread(const NetCMCallInfo& call, int32_t tid, int32_t profile)
    QV_REQUIRES(app_mutex);

// The first free record of a thread: 0 and its index, or NETCM_ERR_NO_FREE_ENTRY.
uint32_t find_free_thread(int32_t& index) QV_REQUIRES(app_mutex);

}  // namespace quorvel
