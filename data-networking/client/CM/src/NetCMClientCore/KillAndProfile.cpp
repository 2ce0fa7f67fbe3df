// Answers that several threads may have asked for: kill responses and proper-profile responses.
#include "client/CM/src/NetCMClientCore/Delivery.h"
#include "client/CM/src/NetCMIntf/KilledProfile.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

namespace {

// What the users of a killed connection learn.
constexpr int32_t kKilled = 22;

NetCMCallInfo* killed_call(int32_t profile) QV_REQUIRES(app_mutex) {
    int32_t call_id = -1;
    int32_t index = -1;
    if (NetCMGetCallIdFromProfileId(profile, &call_id, &index) == NETCM_SUCCESS)
        return &table().CallInfo[index];
    QV_TRACE(2, "Profile[%d] is not associated with any active call\n", profile);
    return call_left_by_its_killer(profile);
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
        if (!asked_for_it(request))
            break;
        const int32_t requester = requester_of(request);
        if (requester != -1)
            deliver_to_requester(requester, event);
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
    NetCMCallInfo* call = killed_call(profile);
    if (call != nullptr && call->CallState == kKillSent)
        deliver_to_everyone(*call, {NETCM_EVENT_STOP_IND, -1, kKilled, nullptr});

    const NetCMEvent event = {NETCM_EVENT_KILL_RSP, profile, static_cast<int32_t>(response.Status),
                              reason_of(response.Status, &response.Word5)};
    answer_requesters(
        table().KillReq, event, [=](const NetCMKillReq& request) { return request.ProfileId == profile; },
        NetCMKillReq{-1, -1});
    if (call != nullptr)
        NetCMClientCleanCallInfo(index_of(*call));
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
