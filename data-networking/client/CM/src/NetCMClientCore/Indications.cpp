// What the network does to calls without being asked.
#include "client/CM/src/NetCMClientCore/ConnectionRecord.h"
#include "client/CM/src/NetCMClientCore/Delivery.h"
#include "client/CM/src/NetCMClientCore/DroppedBlock.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

namespace {

// The frame of an indication about a call: finds the call and hands it on.
template <class Use>
uint32_t for_indicated_call(const uint32_t* record, Use use) QV_REQUIRES(app_mutex) {
    if (is_null_record(record))
        return NETCM_ERR_INVALID_PARAM;
    wire::Record indication = as_record(record);
    NetCMCallInfo* call = named_call(indication);
    if (call == nullptr)
        return NETCM_ERR_NOT_ACTIVE;
    QV_TRACE(0, "Call exists for the callid [%d] \n", static_cast<int>(indication.CallId));
    return use(*call, indication);
}

void indicate(const NetCMCallInfo& call, uint32_t type, uint32_t status, void* reason)
    QV_REQUIRES(app_mutex) {
    deliver_to_everyone(call, {type, -1, static_cast<int32_t>(status), reason_of(status, reason)});
}

}  // namespace

extern "C" {

uint32_t NetCMClientProcessNetworkStatusChangeInd(const uint32_t* record) {
    if (is_null_record(record))
        return NETCM_ERR_INVALID_PARAM;
    const wire::Record& indication = as_record(record);
    int32_t states[2] = {static_cast<int32_t>(indication.Word2), static_cast<int32_t>(indication.CallId)};
    deliver_to_registered({NETCM_EVENT_NETWORK_STATUS_IND, -1, 0, states}, [](int32_t thread_id) {
        QV_TRACE(0, "Sent PS state change indication to thread [%d]\n", thread_id);
    });
    return NETCM_SUCCESS;
}

uint32_t NetCMClientProcessSuspendInd(const uint32_t* record) {
    return for_indicated_call(
        record, [](NetCMCallInfo& call, wire::Record& indication) QV_REQUIRES(app_mutex) -> uint32_t {
            call.CallState = kSuspended;
            int32_t suspended = 1;
            indicate(call, NETCM_EVENT_SUSPEND_IND, indication.Status, &suspended);
            return NETCM_SUCCESS;
        });
}

uint32_t NetCMClientProcessResumeInd(const uint32_t* record) {
    return for_indicated_call(
        record, [](NetCMCallInfo& call, wire::Record& indication) QV_REQUIRES(app_mutex) -> uint32_t {
            if (call.CallState != kSuspended) {
                QV_TRACE(2, "Callid [%d] not in suspend state \n", static_cast<int>(indication.CallId));
                return NETCM_ERR_FAILURE;
            }
            call.CallState = kResumed;
            int32_t suspended = 0;
            indicate(call, NETCM_EVENT_RESUME_IND, indication.Status, &suspended);
            return NETCM_SUCCESS;
        });
}

uint32_t NetCMClientProcesStopInd(const uint32_t* record) {
    return for_indicated_call(
        record, [](NetCMCallInfo& call, wire::Record& indication) QV_REQUIRES(app_mutex) -> uint32_t {
            indicate(call, NETCM_EVENT_STOP_IND, indication.Status, &indication.Word5);
            NetCMClientCleanCallInfo(index_of(call));
            return NETCM_SUCCESS;
        });
}

// Tells the first thread of the call that holds the profile, and no other: one user of an address renews it
// for all.
uint32_t NetCMClientProcesIpChangeInd(const uint32_t* record) {
    if (is_null_record(record))
        return NETCM_ERR_INVALID_PARAM;
    const wire::Record& indication = as_record(record);
    const auto profile = static_cast<int32_t>(indication.Word2);
    QV_TRACE(0, "IP change indication. Call ID = %d Profile ID = %d\n", static_cast<int>(indication.CallId),
             profile);
    NetCMCallInfo* call = named_call(indication);
    if (call == nullptr) {
        if (indication.Status == 0)
            expect_dropped_block();
        return NETCM_ERR_INVALID_PARAM;
    }
    if (indication.Status != 0)
        return NETCM_SUCCESS;
    wire::ConnectionBlock block;
    if (!read_connection_block(block))
        return NETCM_ERR_FAILURE;
    store_connection(call->ConnInfo, block, EmptyName::Kept);
    NetCMConnInfo info = deliverable(call->ConnInfo, profile);
    if (const NetCMThreadProf* user = next_user(*call, profile))
        deliver_response(user->ThreadIndex, {NETCM_EVENT_IP_CHANGE_IND, profile, 0, &info});
    return NETCM_SUCCESS;
}

}  // extern "C"
