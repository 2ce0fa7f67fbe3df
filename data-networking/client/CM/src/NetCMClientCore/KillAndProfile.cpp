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
    for (NetCMKillReq& request : table().KillReq) {
        // The walk ends at the first pair that asked for something else: one behind it is not told, and stays
        // taken. Applications know the order of their kills from it.
        if (request.ProfileId != profile)
            break;
        const int32_t requester = request.ThreadId;
        if (requester != -1)
            deliver_to_requester(requester, event);
        request = {-1, -1};
    }
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
    for (NetCMProperProfReq& request : table().ProperProfReq) {
        // Ends like the walk over the kills.
        if (request.ReqKey != app_id)
            break;
        const int32_t requester = request.ThreadId;
        if (request.InUse == 1 && requester != -1)
            deliver_to_requester(requester, event);
        request = {0, -1, -1};
    }
    return NETCM_SUCCESS;
}

}  // extern "C"
