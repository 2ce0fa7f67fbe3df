// Closing a connection: a thread gives up its own use of a profile.
#include <cstdlib>

#include "client/CM/src/NetCMClientCore/LocalAnswer.h"
#include "client/CM/src/NetCMIntf/Request.h"
#include "client/CM/src/NetCMIntf/StopRequest.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/CallTimes.h"

using namespace quorvel;

namespace {

uint32_t close_profile(int32_t tid, int32_t profile) QV_REQUIRES(app_mutex) {
    int32_t caller_index = 0;
    const uint32_t status = admit_caller(QV_HERE, tid, UnknownThread::IsNotPresent, caller_index);
    if (status != NETCM_SUCCESS)
        return status;
    int32_t call_id = -1;
    int32_t call_index = -1;
    if (NetCMGetCallIdFromProfileId(profile, &call_id, &call_index) != NETCM_SUCCESS) {
        QV_TRACE(2, "Connection referred by profile [%d] is not active\n", profile);
        return NETCM_ERR_NOT_ACTIVE;
    }
    const NetCMThreadProf* entry = entry_of_thread(table().CallInfo[call_index], tid, profile);
    if (entry == nullptr) {
        QV_TRACE(2, "Thread info not found in call list\n");
        QV_TRACE(2, "Thread [%d] is not using this call\n", tid);
        return NETCM_ERR_NOT_ACTIVE;
    }
    QV_TRACE(0, "Thread is using this call\n");
    QV_TRACE(0, "call exist for thread [%d] with profile [%d]\n", tid, profile);
    const int32_t thread_index = entry->ThreadIndex;
    const uint32_t result = NetCMClientRemoveCall(table().ClientId, tid, call_id, profile, thread_index);
    if (result != NETCM_SUCCESS)
        table().ThreadInfo[thread_index].LastSyncError = -1;
    return result;
}

// How the start of a local answer went.
enum class LocalAnswer { Started, NoMemory, NoThread };

LocalAnswer answer_close_locally(const NetCMStartRspInfo& request, int& error) {
    auto* block = static_cast<NetCMStartRspInfo*>(malloc(sizeof(NetCMStartRspInfo)));
    if (block == nullptr) {
        QV_TRACE(4, "Memory can't be allocated for rsp_info\n");
        return LocalAnswer::NoMemory;
    }
    *block = request;
    pthread_t thread{};
    error = start_local_thread(ThreadPostStopEvent, block, thread);
    if (error != 0)
        return LocalAnswer::NoThread;
    QV_TRACE(0, "Local thread to send close response created, ID = %d \n", static_cast<int>(thread));
    return LocalAnswer::Started;
}

}  // namespace

namespace quorvel {

uint32_t send_stop_request(NetCMCallInfo& call, int32_t client_id, int32_t profile) {
    call.CallState = kStopSent;
    QV_TRACE(0, "Sending stop request to PS server for call id %d\n", call.CallId);
    wire::RequestHeader request = request_header(wire::NETCM_CLIENT_STOP_REQ);
    request.ClientId = static_cast<uint32_t>(client_id);
    request.Arg3 = static_cast<uint32_t>(call.CallId);
    request.Arg4 = static_cast<uint32_t>(profile);
    return send_header(request);
}

void stop_if_left(NetCMCallInfo& call, int32_t profile) {
    // A kill is on its way: its response ends the call.
    if (count_users(call) != 0 || call.CallState == kKillSent)
        return;
    // A server that cannot be asked any more will not answer either: nothing would clean the record.
    if (send_stop_request(call, table().ClientId, profile) != NETCM_SUCCESS)
        NetCMClientCleanCallInfo(index_of(call));
}

}  // namespace quorvel

extern "C" {

uint32_t NetCMConnectionClose(int32_t profile) {
    QV_TRACE(0, "Stop Network Connection Request from the client %d, profile id = %d\n",
             load(g_NetCMClientAppInfo.ClientId), profile);
    QV_TRACE(2, "PS Connection Close START TIME = %f\n", call_asked(ps_call_deact_time));
    if (profile < 1) {
        QV_TRACE(5, "Invalid profile ID [%d]\n", profile);
        return NETCM_ERR_INVALID_PROFILE;
    }
    const AppMutexGuard guard(QV_HERE);
    return close_profile(guard.thread_id(), profile);
}

uint32_t NetCMClientRemoveCall(int32_t clientId, int32_t tid, int32_t callId, int32_t profile,
                               int32_t threadIndex) {
    NetCMCallInfo& call = table().CallInfo[callId];
    const NetCMStartRspInfo request = {static_cast<uint32_t>(tid), static_cast<uint32_t>(callId),
                                       static_cast<uint32_t>(threadIndex), static_cast<uint32_t>(profile)};
    int error = 0;
    const int users = count_users(call);
    if (users == 0)
        return NETCM_ERR_INVALID_PARAM;
    if (users > 1) {
        QV_TRACE(0, "More than one thread uses this call: count = %d \n", users);
        return answer_close_locally(request, error) == LocalAnswer::Started ? NETCM_SUCCESS
                                                                            : NETCM_ERR_FAILURE;
    }
    const int32_t entry = entry_of(call, threadIndex);
    int32_t profiles = 0;
    if (entry >= 0)
        NetCMClientThreadProfGetProfileCount(callId, entry, &profiles);
    if (profiles < 2)
        return send_stop_request(call, clientId, profile);
    QV_TRACE(0, "More than one profile uses this call. Profile count = [%d]\n", profiles);
    const LocalAnswer answer = answer_close_locally(request, error);
    if (answer == LocalAnswer::NoThread)
        QV_TRACE(4, "Local thread creation failed. Error = [%d]\n", error);
    return answer == LocalAnswer::Started ? NETCM_SUCCESS : NETCM_ERR_FAILURE;
}

}  // extern "C"
