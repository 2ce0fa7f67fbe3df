// Answers that several threads may have asked for: kill responses and proper-profile responses.
#include "client/CM/src/NetCMClientCore/Delivery.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

namespace {

// What the users of a killed connection learn.
constexpr int32_t kKilled = 22;

// The connection that the kill was meant for, and whether its users have to be told. A kill that nobody is
// known to have asked for is taken for the profile's call as it is.
bool find_killed(int32_t profile, CallKey& key) QV_REQUIRES(app_mutex) {
    int32_t call_id = -1;
    int32_t index = -1;
    if (NetCMGetCallIdFromProfileId(profile, &call_id, &index) != NETCM_SUCCESS)
        QV_TRACE(2, "Profile[%d] is not associated with any active call\n", profile);
    const Lock lock(table_lock);
    if (!take_kill(profile, key)) {
        const Call as_it_is = index >= 0 ? slot(index) : call_without_users_being_killed();
        key = as_it_is ? key_of(as_it_is) : key;
    }
    const Call call = find(key);
    const bool was_killed = call && is_being_killed(call);
    if (was_killed)
        begin_telling(call, kEverything);
    return was_killed;
}

// Who waits for a pending answer, or -1.
int32_t requester_of(const NetCMKillReq& request) {
    return request.ThreadId;
}
int32_t requester_of(const NetCMProperProfReq& request) {
    return request.InUse == 1 ? request.ThreadId : -1;
}

// Tells everybody who asked for the same, and frees what they took. The walk ends at the first entry that
// asked for something else: one behind it is not told, and stays taken. Applications know the order of their
// requests from it.
template <class Pending, size_t Size, class Asked>
void answer_requesters(Pending (&pending)[Size], const NetCMEvent& event, Asked asked_for_it,
                       const Pending& free) QV_REQUIRES(app_mutex) {
    for (Pending& request : pending) {
        int32_t requester = -1;
        {
            const Lock lock(table_lock);
            if (!asked_for_it(request))
                break;
            requester = requester_of(request);
        }
        if (requester != -1)
            tell_requester(requester, event);
        const Lock lock(table_lock);
        request = free;
    }
}

}  // namespace

extern "C" {

uint32_t NetCMClientProcesKillRsp(const uint32_t* record) {
    if (is_null_record(record))
        return NETCM_ERR_INVALID_PARAM;
    wire::Record response = as_record(record);
    const auto profile = static_cast<int32_t>(response.Word2);
    QV_TRACE(0, "Kill rsp for profile id : %d \n", profile);
    CallKey key = {-1, 0};
    if (find_killed(profile, key))
        tell_everyone(key, kEverything, {NETCM_EVENT_STOP_IND, -1, kKilled, nullptr}, tell_ended);

    const NetCMEvent event = {NETCM_EVENT_KILL_RSP, profile, static_cast<int32_t>(response.Status),
                              reason_of(response.Status, &response.Word5)};
    answer_requesters(
        table().KillReq, event, [=](const NetCMKillReq& request) { return request.ProfileId == profile; },
        NetCMKillReq{-1, -1});
    const Lock lock(table_lock);
    if (const Call call = find(key))
        clean(call);
    return NETCM_SUCCESS;
}

uint32_t NetCMClientProcessProperProfRsp(const uint32_t* record) {
    if (is_null_record(record))
        return NETCM_ERR_INVALID_PARAM;
    wire::Record response = as_record(record);
    const auto app_id = static_cast<int32_t>(response.Word5);
    const auto profile = static_cast<int32_t>(response.Word6);
    QV_TRACE(0, "Proper profile rsp for app id : %d \n", app_id);
    QV_TRACE(0, "Proper profile rsp for profile id : %d \n", profile);
    const NetCMEvent event = {NETCM_EVENT_PROPER_PROFILE_RSP, profile, 0, &response.Status};
    answer_requesters(
        table().ProperProfReq, event,
        [=](const NetCMProperProfReq& request) { return request.ReqKey == app_id; },
        NetCMProperProfReq{0, -1, -1});
    return NETCM_SUCCESS;
}

}  // extern "C"
