#include "client/CM/src/NetCMClientCore/Delivery.h"

#include "client/CM/src/NetCMPrivate.h"

namespace quorvel {

bool is_null_record(const uint32_t* record) {
    if (record != nullptr)
        return false;
    QV_TRACE(5, "NULL pointer variable passed\n");
    return true;
}

NetCMCallInfo* named_call(const wire::Record& record) {
    NetCMCallInfo* call = find_call(record.CallId);
    if (call == nullptr)
        QV_TRACE(2, "Callid [%d] not active \n", static_cast<int>(record.CallId));
    return call;
}

void* reason_of(uint32_t status, void* reason) {
    return status == kStatusWithReason ? reason : nullptr;
}

void deliver(int32_t thread_index, const NetCMEvent& event) {
    const NetCMEventCallback callback = table().ThreadInfo[thread_index].EventCbk;
    if (callback == nullptr)
        return;
    NetCMEvent own = event;
    callback(&own);
}

void deliver_response(int32_t thread_index, const NetCMEvent& event) {
    QV_TRACE(0, "thread index[%d] event_cb [0x%x]\n", thread_index,
             narrow(table().ThreadInfo[thread_index].EventCbk));
    deliver(thread_index, event);
}

// Indices, not references: a callback may change the call, and what it has taken out is not told any more.
void deliver_to_everyone(const NetCMCallInfo& call, NetCMEvent event) {
    for (const NetCMThreadProf& entry : call.ThreadProf) {
        for (const int32_t& profile : entry.ProfileId) {
            if (!in_use(entry))
                break;
            if (profile == -1)
                continue;
            event.ProfileId = profile;
            deliver(entry.ThreadIndex, event);
        }
    }
}

void deliver_to_requester(int32_t thread_id, const NetCMEvent& event) {
    int32_t index = 0;
    if (NetCMGetThreadIndex(thread_id, &index) == 0)
        deliver(index, event);
}

NetCMThreadProf* next_user(NetCMCallInfo& call, int32_t profile, int32_t first) {
    for (int32_t i = first; i < NETCM_MAX_THREADS; ++i)
        if (in_use(call.ThreadProf[i]) && holds(call.ThreadProf[i], profile))
            return &call.ThreadProf[i];
    return nullptr;
}

void remove_profile(NetCMCallInfo& call, const NetCMThreadProf& entry, int32_t profile) {
    NetCMClientThreadProfDeleteProfileEntry(index_of(call), static_cast<int32_t>(&entry - call.ThreadProf),
                                            profile);
}

}  // namespace quorvel
