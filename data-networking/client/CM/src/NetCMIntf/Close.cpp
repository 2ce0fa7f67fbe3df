// Closing a connection: a thread gives up its own use of a profile.
#include "client/CM/src/NetCMClientCore/LocalAnswer.h"
#include "client/CM/src/NetCMIntf/Request.h"
#include "client/CM/src/NetCMIntf/StopRequest.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/CallTimes.h"
#include "common/Exported.h"

using namespace quorvel;

namespace {

// What a thread has of a call.
struct UseOfCall {
    int32_t call_id = -1;
    int32_t thread_index = -1;
};

// Looked up in one step with its traces behind it: the end of the server may end the call at any moment.
UseOfCall find_use(int32_t tid, int32_t call_index, int32_t profile) {
    const Lock lock(table_lock);
    const NetCMCallInfo& call = *slot(call_index).record;
    const int32_t entry = entry_of_thread(call, tid, profile);
    return entry < 0 ? UseOfCall{} : UseOfCall{load(call.CallId), load(call.ThreadProf[entry].ThreadIndex)};
}

// How the start of a local answer went.
enum class LocalAnswer { Started, NoMemory, NoThread };

LocalAnswer answer_close_locally(const NetCMStartRspInfo& request, UseKey use, int& error) {
    LocalRequest* const block = make_local_request(request, use);
    if (block == nullptr) {
        QV_TRACE(4, "Memory can't be allocated for rsp_info\n");
        return LocalAnswer::NoMemory;
    }
    pthread_t thread{};
    error = start_local_thread(LocalAnswerKind::Close, block, thread);
    if (error != 0)
        return LocalAnswer::NoThread;
    QV_TRACE(0, "Local thread to send close response created, ID = %d \n", static_cast<int>(thread));
    return LocalAnswer::Started;
}

// A use of a call whose end has been asked for, and whose id is another connection's meanwhile.
struct LeftCall {
    NetCMStartRspInfo request = {};
    UseKey use = {};
};

bool find_left_call(int32_t tid, int32_t profile, LeftCall& left) {
    const Lock lock(table_lock);
    int32_t entry = -1;
    const Call call = call_elsewhere(tid, profile, entry);
    if (!call)
        return false;
    left.request = {static_cast<uint32_t>(tid), static_cast<uint32_t>(load(call.record->CallId)),
                    static_cast<uint32_t>(load(call.record->ThreadProf[entry].ThreadIndex)),
                    static_cast<uint32_t>(profile)};
    left.use = {use_of(call, entry, profile)->serial};
    return true;
}

// The server is not asked: it would stop the next connection.
uint32_t close_left_call(const LeftCall& left) {
    int error = 0;
    return answer_close_locally(left.request, left.use, error) == LocalAnswer::Started ? NETCM_SUCCESS
                                                                                       : NETCM_ERR_FAILURE;
}

uint32_t not_active(int32_t profile) {
    QV_TRACE(2, "Connection referred by profile [%d] is not active\n", profile);
    return NETCM_ERR_NOT_ACTIVE;
}

uint32_t close_profile(int32_t tid, int32_t profile) QV_REQUIRES(app_mutex) {
    int32_t caller_index = 0;
    const uint32_t status = admit_caller(QV_HERE, tid, UnknownThread::IsNotPresent, caller_index);
    if (status != NETCM_SUCCESS)
        return status;
    int32_t call_id = -1;
    int32_t call_index = -1;
    if (NetCMGetCallIdFromProfileId(profile, &call_id, &call_index) != NETCM_SUCCESS) {
        LeftCall left;
        return find_left_call(tid, profile, left) ? close_left_call(left) : not_active(profile);
    }
    const UseOfCall use = find_use(tid, call_index, profile);
    if (use.thread_index == -1) {
        QV_TRACE(2, "Thread info not found in call list\n");
        QV_TRACE(2, "Thread [%d] is not using this call\n", tid);
        return NETCM_ERR_NOT_ACTIVE;
    }
    QV_TRACE(0, "Thread is using this call\n");
    QV_TRACE(0, "call exist for thread [%d] with profile [%d]\n", tid, profile);
    const uint32_t result =
        NetCMClientRemoveCall(table().ClientId, tid, use.call_id, profile, use.thread_index);
    // The end of the server has come between.
    if (result == NETCM_ERR_INVALID_PARAM)  // not reached: only between two steps
        return not_active(profile);         // not reached: only between two steps
    if (result != NETCM_SUCCESS)
        table().ThreadInfo[use.thread_index].LastSyncError = -1;
    return result;
}

// How a use of a call is given up.
struct Leaving {
    UseKey use = {};
    int users = 0;
    int32_t entry = -1;
    int32_t profiles = 0;                          // of the thread, when it is the only user
    bool is_last() const { return profiles < 2; }  // of a call with one user
};

// Counts, and begins the stop of a call whose last user leaves, in one step.
Leaving look_at(int32_t call_index, int32_t thread_index, int32_t profile) {
    const Lock lock(table_lock);
    const Call call = slot(call_index);
    Leaving leaving = {.users = count_users(*call.record)};
    if (leaving.users != 0)
        leaving.users += count_perhaps_here(call);
    const int32_t entry = entry_holding(*call.record, thread_index, profile);
    if (entry >= 0)
        leaving.use.serial = use_of(call, entry, profile)->serial;
    if (leaving.users != 1)
        return leaving;
    leaving.entry = entry_of(*call.record, thread_index);
    if (leaving.entry >= 0)
        leaving.profiles = count_profiles(call.record->ThreadProf[leaving.entry]);
    if (leaving.is_last())
        begin_stop(call, profile);
    return leaving;
}

}  // namespace

namespace quorvel {

int32_t begin_stop(const Call& call, int32_t profile) {
    call.record->CallState = kStopSent;
    if (call.life->ending != Ending::Told)
        ask_for_end(call, Ending::Stop, profile);
    return load(call.record->CallId);
}

uint32_t send_stop_request(int32_t call_id, int32_t client_id, int32_t profile) {
    QV_TRACE(0, "Sending stop request to PS server for call id %d\n", call_id);
    wire::RequestHeader request = request_header(wire::NETCM_CLIENT_STOP_REQ);
    request.ClientId = static_cast<uint32_t>(client_id);
    request.Arg3 = static_cast<uint32_t>(call_id);
    request.Arg4 = static_cast<uint32_t>(profile);
    return send_header(request);
}

void stop_if_left(CallKey key, int32_t profile) {
    int32_t call_id = -1;
    {
        const Lock lock(table_lock);
        const Call call = find(key);
        // Where a kill is on its way, its response ends the call. What has left its slot is not there at the
        // server any more.
        if (!call || count_users(*call.record) != 0 || is_being_killed(call) || key_of(call).index < 0)
            return;
        call_id = begin_stop(call, profile);
    }
    if (send_stop_request(call_id, table().ClientId, profile) == NETCM_SUCCESS)
        return;
    // A server that cannot be asked any more will not answer either: nothing would clean the record.
    const Lock lock(table_lock);
    if (const Call call = find(key))  // not reached: only between two steps
        clean(call);
}

}  // namespace quorvel

extern "C" {

uint32_t NetCMConnectionClose(int32_t profile) {
    QV_TRACE(0, "Stop Network Connection Request from the client %d, profile id = %d\n",
             load(exported::app_info->ClientId), profile);
    QV_TRACE(2, "PS Connection Close START TIME = %f\n", call_asked(*exported::call_deact_time));
    if (profile < 1) {
        QV_TRACE(5, "Invalid profile ID [%d]\n", profile);
        return NETCM_ERR_INVALID_PROFILE;
    }
    const AppMutexGuard guard(QV_HERE);
    return close_profile(guard.thread_id(), profile);
}

uint32_t NetCMClientRemoveCall(int32_t clientId, int32_t tid, int32_t callId, int32_t profile,
                               int32_t threadIndex) {
    if (static_cast<uint32_t>(callId) >= NETCM_MAX_CALLS)
        return NETCM_ERR_INVALID_PARAM;
    const NetCMStartRspInfo request = {static_cast<uint32_t>(tid), static_cast<uint32_t>(callId),
                                       static_cast<uint32_t>(threadIndex), static_cast<uint32_t>(profile)};
    const Leaving leaving = look_at(callId, threadIndex, profile);
    int error = 0;
    if (leaving.users == 0)
        return NETCM_ERR_INVALID_PARAM;
    if (leaving.users > 1) {
        QV_TRACE(0, "More than one thread uses this call: count = %d \n", leaving.users);
        return answer_close_locally(request, leaving.use, error) == LocalAnswer::Started ? NETCM_SUCCESS
                                                                                         : NETCM_ERR_FAILURE;
    }
    int32_t profiles = 0;
    if (leaving.entry >= 0)
        NetCMClientThreadProfGetProfileCount(callId, leaving.entry, &profiles);
    if (leaving.is_last())
        return send_stop_request(callId, clientId, profile);
    QV_TRACE(0, "More than one profile uses this call. Profile count = [%d]\n", leaving.profiles);
    const LocalAnswer answer = answer_close_locally(request, leaving.use, error);
    if (answer == LocalAnswer::NoThread)
        QV_TRACE(4, "Local thread creation failed. Error = [%d]\n", error);
    return answer == LocalAnswer::Started ? NETCM_SUCCESS : NETCM_ERR_FAILURE;
}

}  // extern "C"
