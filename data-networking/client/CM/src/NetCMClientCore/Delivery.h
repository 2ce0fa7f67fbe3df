// Events on their way to the callbacks.
#pragma once

#include "client/CM/src/NetCMIntf/Table.h"
#include "common/Wire.h"

namespace quorvel {

// With this status an event carries the server's reason.
inline constexpr uint32_t kStatusWithReason = 21;

inline const wire::Record& as_record(const uint32_t* words) {
    return *reinterpret_cast<const wire::Record*>(words);
}

// The null check that every event processor begins with.
bool is_null_record(const uint32_t* record);

// The call that a record names, or null with a trace.
NetCMCallInfo* named_call(const wire::Record& record) QV_REQUIRES(app_mutex);

// Data of an event: the reason when the status has one, else null.
void* reason_of(uint32_t status, void* reason);

// Calls a thread's callback when it has one. Each callback gets an event record of its own.
void deliver(int32_t thread_index, const NetCMEvent& event) QV_REQUIRES(app_mutex);
// The same with the trace of a response.
void deliver_response(int32_t thread_index, const NetCMEvent& event) QV_REQUIRES(app_mutex);

// To every profile of every thread of a call: one event each, with ProfileId set to the profile.
void deliver_to_everyone(const NetCMCallInfo& call, NetCMEvent event) QV_REQUIRES(app_mutex);

// To every registered thread that has a callback; `then` is done with its kernel thread id after each.
template <class Then>
void deliver_to_registered(const NetCMEvent& event, Then then) QV_REQUIRES(app_mutex) {
    for (int32_t i = 0; i < NETCM_MAX_THREADS; ++i) {
        const NetCMThreadInfo& thread = table().ThreadInfo[i];
        const int32_t thread_id = thread.ThreadId;
        if (thread_id == -1 || thread.EventCbk == nullptr)
            continue;
        deliver(i, event);
        then(thread_id);
    }
}

// Calls the callback of a thread that asked, and may have left meanwhile.
void deliver_to_requester(int32_t thread_id, const NetCMEvent& event) QV_REQUIRES(app_mutex);

// The first entry in use, from `first` on, that holds the profile; null when there is none.
NetCMThreadProf* next_user(NetCMCallInfo& call, int32_t profile, int32_t first = 0);

// Takes the profile out of an entry.
void remove_profile(NetCMCallInfo& call, const NetCMThreadProf& entry, int32_t profile)
    QV_REQUIRES(app_mutex);

}  // namespace quorvel
