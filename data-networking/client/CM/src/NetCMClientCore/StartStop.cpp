// Start and stop responses of the server.
#include "client/CM/src/NetCMClientCore/ConnectionRecord.h"
#include "client/CM/src/NetCMClientCore/Delivery.h"
#include "client/CM/src/NetCMClientCore/DroppedBlock.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/CallTimes.h"

using namespace quorvel;

namespace {

// Tells every thread that opened the profile on this call, not only the first. `then` is done with each entry
// after its callback.
template <class Then>
void tell_users(NetCMCallInfo& call, int32_t profile, const NetCMEvent& event, Then then)
    QV_REQUIRES(app_mutex) {
    for (NetCMThreadProf& entry : call.ThreadProf) {
        if (!in_use(entry) || !holds(entry, profile))
            continue;
        deliver_response(entry.ThreadIndex, event);
        then(entry);
    }
}

uint32_t start_succeeded(NetCMCallInfo& call, const wire::Record& response) QV_REQUIRES(app_mutex) {
    QV_TRACE(0, "PDP Activation is successful \n");
    wire::ConnectionBlock block;
    if (!read_connection_block(block))
        return NETCM_ERR_FAILURE;
    store_connection(call.ConnInfo, block, EmptyName::Stored);
    call.IsActive = 1;
    const auto profile = static_cast<int32_t>(response.Word2);
    NetCMConnInfo info = deliverable(call.ConnInfo, profile);
    tell_users(call, profile, {NETCM_EVENT_OPEN_RSP, profile, static_cast<int32_t>(response.Status), &info},
               [](NetCMThreadProf&) {});
    return NETCM_SUCCESS;
}

// A refused start frees the call with everything that was hung on it, other profiles included.
void start_failed(NetCMCallInfo& call, wire::Record response) QV_REQUIRES(app_mutex) {
    QV_TRACE(2, "Reason Code  = %d \n", static_cast<int>(response.Word5));
    const auto profile = static_cast<int32_t>(response.Word2);
    const NetCMEvent event = {NETCM_EVENT_OPEN_RSP, profile, static_cast<int32_t>(response.Status),
                              reason_of(response.Status, &response.Word5)};
    tell_users(call, profile, event, [&](NetCMThreadProf& entry) QV_REQUIRES(app_mutex) {
        remove_profile(call, entry, profile);
        release(entry);
    });
    NetCMClientCleanCallInfo(index_of(call));
}

void sweep(NetCMCallInfo& call) QV_REQUIRES(app_mutex) {
    for (NetCMThreadProf& entry : call.ThreadProf)
        if (in_use(entry) && holds_nothing(entry))
            release(entry);
    if (count_users(call) == 0)
        NetCMClientCleanCallInfo(index_of(call));
}

}  // namespace

extern "C" {

uint32_t NetCMClientProcesStartRsp(const uint32_t* record) {
    if (is_null_record(record))
        return NETCM_ERR_INVALID_PARAM;
    const wire::Record& response = as_record(record);
    QV_TRACE(0, "Response for the callid = %d Profile id = %d\n", static_cast<int>(response.CallId),
             static_cast<int>(response.Word2));
    QV_TRACE(2, "PS Connection Open Rsp time = %f\n", call_answered(ps_call_act_time));
    QV_TRACE(2, "Total PS Call setup time = %f\n", duration(ps_call_act_time));
    NetCMCallInfo* call = named_call(response);
    if (call == nullptr) {
        if (response.Status == 0)
            expect_dropped_block();
        return NETCM_ERR_INVALID_PARAM;
    }
    if (response.Status == 0)
        return start_succeeded(*call, response);
    start_failed(*call, response);
    return NETCM_SUCCESS;
}

uint32_t NetCMClientProcesStopRsp(const uint32_t* record) {
    if (record == nullptr)
        return NETCM_ERR_INVALID_PARAM;
    wire::Record response = as_record(record);
    QV_TRACE(2, "PS Connection Close Rsp time = %f\n", call_answered(ps_call_deact_time));
    QV_TRACE(2, "Total PS Call Teardown time = %f\n", duration(ps_call_deact_time));
    NetCMCallInfo* call = named_call(response);
    if (call == nullptr)
        return NETCM_ERR_INVALID_PARAM;
    QV_TRACE(0, "Call exists for the callid [%d] \n", static_cast<int>(response.CallId));
    const auto profile = static_cast<int32_t>(response.Word2);
    // Only the first: the close that reached the server came from the call's last user.
    if (NetCMThreadProf* user = next_user(*call, profile)) {
        deliver(user->ThreadIndex, {NETCM_EVENT_CLOSE_RSP, profile, static_cast<int32_t>(response.Status),
                                    reason_of(response.Status, &response.Word5)});
        remove_profile(*call, *user, profile);
    }
    sweep(*call);
    return NETCM_SUCCESS;
}

}  // extern "C"
