// Opening a connection.
#include <algorithm>
#include <cstdlib>

#include "client/CM/src/NetCMClientCore/LocalAnswer.h"
#include "client/CM/src/NetCMClientInternal/Link.h"
#include "client/CM/src/NetCMClientInternal/Stream.h"
#include "client/CM/src/NetCMIntf/Calls.h"
#include "client/CM/src/NetCMIntf/Request.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/CallTimes.h"
#include "common/Exported.h"

using namespace quorvel;

namespace {

constexpr uint32_t kTransportError = 21;

// The thread that opens, as the steps below need it.
struct Opener {
    int32_t tid;
    int32_t index;
};

uint32_t check_arguments(const int32_t* profileIds, int32_t profileCount) {
    if (profileCount < 1 || profileCount > NETCM_MAX_PROFILES) {
        QV_TRACE(5, "Invalid profileCount parameter. profileCount = [%d]\n", profileCount);
        return NETCM_ERR_INVALID_PARAM;
    }
    if (profileIds == nullptr) {
        QV_TRACE(5, "NULL ProfileId parameter\n");
        return NETCM_ERR_INVALID_PARAM;
    }
    return profileIds[0] < 0 ? NETCM_ERR_INVALID_PROFILE : NETCM_SUCCESS;
}

uint32_t ask_default_profile(int32_t& profile) QV_REQUIRES(app_mutex) {
    uint32_t status = send_header(request_header(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ));
    if (status != NETCM_SUCCESS) {
        QV_TRACE(2, "Error Sending request to CM Server  \n");
        return status;
    }
    wire::Record answer = {};
    status =
        NetCMReadResponse(table().SyncSockFd, wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP, &answer.Code);
    if (status != NETCM_SUCCESS)
        return status;
    if (answer.Status != 0) {
        QV_TRACE(3, "Error getting default profile ID = %d \n", static_cast<int>(answer.Status));
        return answer.Status;
    }
    profile = static_cast<int32_t>(answer.Word2);
    // A server that has none says so by its status; this one would give a call that nobody can close.
    return profile < 1 ? NETCM_ERR_INVALID_PROFILE : NETCM_SUCCESS;
}

// A profile id of 0 stands for the server's default profile.
uint32_t resolve_default_profile(int32_t& profile) QV_REQUIRES(app_mutex) {
    if (profile != 0)
        return NETCM_SUCCESS;
    QV_TRACE(0, "Sending request to CM server for default profile id \n");
    const uint32_t status = ask_default_profile(profile);
    if (status != NETCM_SUCCESS)
        QV_TRACE(3, "Failed to read default profile ID. Err = %d\n", static_cast<int>(status));
    else
        QV_TRACE(0, "Successfully read default profile [ID:%d] from profile manager\n", profile);
    return status;
}

uint32_t have_async_socket() QV_REQUIRES(app_mutex) {
    if (table().AsyncSockFd != kNoDescriptor) {
        QV_TRACE(0, "Async socket already exist %d \n", table().AsyncSockFd);
    } else if (NetCMClientAsyncEventInit(static_cast<uint32_t>(table().ClientId)) == -1) {
        QV_TRACE(4, "Error creating Async Socket \n");
        return NETCM_ERR_FAILURE;
    }
    QV_TRACE(0, "Async socket = %d \n", table().AsyncSockFd);
    return NETCM_SUCCESS;
}

uint32_t check_room(int32_t call, const Opener& opener) QV_REQUIRES(app_mutex) {
    int32_t thread_prof = 0;
    if (NetCMClientThreadProfCheckThreadEntry(call, opener.index, &thread_prof) == 1) {
        if (NetCMClientThreadProfCheckFreeProfileEntry(call, thread_prof) == 1)
            return NETCM_SUCCESS;
        QV_TRACE(2, "No free profile entry for thread [%d]\n", opener.tid);
        return NETCM_ERR_MAX_LIMIT;
    }
    if (NetCMClientThreadProfCheckFreeThreadEntry(call) == 1)
        return NETCM_SUCCESS;
    QV_TRACE(2, "No free thread entry in call list\n");
    return NETCM_ERR_MAX_LIMIT;
}

// No request goes to the server: the call is there, and the thread shares it.
uint32_t join_call(int32_t call, int32_t profile, const Opener& opener) QV_REQUIRES(app_mutex) {
    uint32_t status = check_room(call, opener);
    if (status != NETCM_SUCCESS)
        return status;
    status = NetCMClientValidateAppThread(opener.tid, call, profile);
    if (status == NETCM_ERR_ALREADY_EXISTS) {
        QV_TRACE(2, "Thread [%d] has active call with profile [%d]\n", opener.tid, profile);
        return status;
    }
    if (status == NETCM_ERR_MAX_LIMIT) {
        QV_TRACE(2, "Max. connection limit reached\n");
        return status;
    }
    QV_TRACE(0, "No instance exists for the thread [%d]\n", opener.tid);
    status = NetCMClientAddThreadToCallinfo(opener.tid, call, profile, opener.index);
    if (status == NETCM_SUCCESS)
        QV_TRACE(0, "Added thread %d in the call %d \n", opener.tid, call);
    else
        QV_TRACE(2, "Error validating the call..\n");
    return status;
}

// Where the async stream was when the server was last asked for a start.
Position start_asked_at QV_GUARDED_BY(table_lock) = 0;

void note_asked() {
    const Position now = async_stream.end_of_arrived();
    const Lock lock(table_lock);
    start_asked_at = now;
}

uint32_t exchange_start(int32_t profile, wire::Record& answer) QV_REQUIRES(app_mutex) {
    QV_TRACE(0, "Sending start request to PS server for profile id [%d]\n", profile);
    wire::RequestHeader request = request_header(wire::NETCM_CLIENT_START_REQ);
    request.Arg4 = static_cast<uint32_t>(profile);
    note_asked();
    uint32_t status = send_header(request);
    if (status != NETCM_SUCCESS) {
        QV_TRACE(2, "Error Sending request to CM. Error = [%d] \n", static_cast<int>(status));
        return status;
    }
    QV_TRACE(2, "Sent Request to the CM \n");
    status = NetCMReadResponse(table().SyncSockFd, wire::NETCM_CLIENT_START_RSP, &answer.Code);
    if (status != NETCM_SUCCESS)
        QV_TRACE(3, "Error reading response from CM. Error = [%d]\n", static_cast<int>(status));
    else
        QV_TRACE(2, "Received response = %d \n", static_cast<int>(answer.Code));
    return status;
}

// Keeps why the server refused, for NetCMGetTransportError.
uint32_t start_refused(const wire::Record& answer, Opener opener) QV_REQUIRES(app_mutex) {
    QV_TRACE(3, "Error Starting connection = %d \n", static_cast<int>(answer.Status));
    if (NetCMGetThreadIndex(opener.tid, &opener.index) == 0)  // not reached: checked before
        table().ThreadInfo[opener.index].LastSyncError =
            answer.Status == kTransportError ? static_cast<int32_t>(answer.Word5) : -1;
    return answer.Status;
}

// The receiver may have ended since the link was checked.
uint32_t have_receiver() QV_REQUIRES(app_mutex) {
    if (load(table().RecvThreadId) != kNoThread)
        return NETCM_SUCCESS;
    const int error = start_receiver(table().AsyncSockFd);
    if (error != 0) {
        QV_TRACE(4, "CM lib async thread creation failed. Error = [%d]\n", error);
        return NETCM_ERR_FAILURE;
    }
    QV_TRACE(0, "CM APP Thread created, ID = %u \n", static_cast<uint32_t>(load(table().RecvThreadId)));
    return NETCM_SUCCESS;
}

uint32_t start_call(int32_t profile, const Opener& opener) QV_REQUIRES(app_mutex) {
    wire::Record answer = {};
    uint32_t status = exchange_start(profile, answer);
    if (status != NETCM_SUCCESS)
        return status;
    if (answer.Status != 0)
        return start_refused(answer, opener);
    QV_TRACE(0, "Successfull.. recd call id is %d, threadid = %u  \n", static_cast<int>(answer.CallId),
             static_cast<uint32_t>(load(table().RecvThreadId)));
    status = NetCMClientAddCall(static_cast<int32_t>(answer.CallId), opener.index, profile);
    return status != NETCM_SUCCESS ? status : have_receiver();
}

uint32_t open_profile(int32_t profile, Opener opener) QV_REQUIRES(app_mutex) {
    uint32_t status = admit_caller(QV_HERE, opener.tid, UnknownThread::IsNotPresent, opener.index);
    if (status == NETCM_SUCCESS)
        status = resolve_default_profile(profile);
    if (status == NETCM_SUCCESS)
        status = have_async_socket();
    if (status != NETCM_SUCCESS)
        return status;

    int32_t call = 0;
    status = NetCMClientValidateConnection(profile, &call);
    if (status == NETCM_SUCCESS)
        return start_call(profile, opener);
    if (status == NETCM_ERR_ALREADY_EXISTS)
        return join_call(call, profile, opener);
    QV_TRACE(2, "Error validating the call..\n");
    return status;
}

// Where a use has been put.
struct Joined {
    Entry entry = {};
    bool is_new = false;  // the call
    bool is_active = false;
    UseKey use = {};
};

// Adds to a call that is there what belongs to the same connection. Not when the call has ended.
Joined join_slot(int32_t index, int32_t profile, int32_t thread_index) {
    const Lock lock(table_lock);
    const Call call = slot(index);
    if (load(call.record->InUse) != 1)
        return {.entry = {.index = -1}};
    // Where the server's response has come, those who come later are not told by it.
    const bool unsure = is_unsure(call, profile) && is_start_awaited(call, profile);
    const Entry entry = add_use(call, thread_index, profile, began_with(call, profile));
    const bool is_active = call.record->IsActive == 1 && !unsure;
    Use& use = *use_of(call, entry.index, profile);
    if (is_active)
        use.opening = Opening::Due;
    return {.entry = entry, .is_active = is_active, .use = {use.serial}};
}

// Puts what the server has accepted under the call's id.
Joined enter_slot(int32_t call_id, int32_t profile, int32_t thread_index, Position began) {
    const Lock lock(table_lock);
    const Call call = slot(call_id);
    forget_refused(call_id, thread_index, profile);
    const bool is_new = load(call.record->InUse) != 1 || load(call.record->CallId) != call_id;
    if (is_new) {
        begin_anew(*call.life);
        call.life->opened = began;
        store(call.record->CallId, call_id);
        call.record->ConnInfo = {};
        store(call.record->InUse, 1);
    }
    // What has come together with the answer is about a new call: of an earlier one with this id nothing is
    // to be told any more, or it is kept beside the slot.
    const Position from = is_new ? 0 : began;
    Entry entry;
    if (is_new)
        put_use(call, 0, 0, thread_index, profile, from);
    else
        entry = add_use(call, thread_index, profile, from);
    note_start(call, {.profile = profile, .began = from, .asked = std::min(from, start_asked_at)});
    return {.entry = entry, .is_new = is_new};
}

bool is_closing_in_slot(int32_t index) {
    const Lock lock(table_lock);
    return load(slot(index).record->InUse) == 1 && is_closing(slot(index));
}

// A server that gives the id of a call which is still to be closed has closed it: what is to be told of that
// call is kept beside the slot. False when there is no memory for it.
bool vacate(int32_t index, Position until) {
    if (!is_closing_in_slot(index))
        return true;
    Departure departure;
    if (!departure.possible())
        return false;
    const Lock lock(table_lock);
    if (load(slot(index).record->InUse) == 1)  // not reached: only between two steps
        departure.leave(slot(index), until);
    return true;
}

}  // namespace

extern "C" {

// Only the first id is opened; applications pass their whole list and mean the first that they have.
uint32_t NetCMConnectionOpen(const int32_t* profileIds, int32_t profileCount) {
    QV_TRACE(2, "PS Connection Open START TIME = %f\n", call_asked(*exported::call_act_time));
    const uint32_t status = check_arguments(profileIds, profileCount);
    if (status != NETCM_SUCCESS)
        return status;
    QV_TRACE(0, "Open Connection Request from the client [%d] with profile ID [%d]\n",
             load(exported::app_info->ClientId), profileIds[0]);
    const AppMutexGuard guard(QV_HERE);
    return open_profile(profileIds[0], {guard.thread_id(), 0});
}

uint32_t NetCMClientAddThreadToCallinfo(int32_t tid, int32_t callIndex, int32_t profile,
                                        int32_t threadIndex) {
    const NetCMStartRspInfo block = {static_cast<uint32_t>(tid), static_cast<uint32_t>(callIndex),
                                     static_cast<uint32_t>(threadIndex), static_cast<uint32_t>(profile)};
    LocalRequest* const request = make_local_request(block, {});
    if (request == nullptr)
        return NETCM_ERR_FAILURE;
    const Joined joined = join_slot(callIndex, profile, threadIndex);
    if (joined.entry.index < 0) {
        // The end of the server has come between.
        free(request);
        return NETCM_ERR_FAILURE;
    }
    const auto [entry, was_his] = joined.entry;
    trace_entry(entry, was_his);
    if (was_his)
        QV_TRACE(0, "Thread instance = [%d]\n", entry);
    else
        QV_TRACE(0, "Found free thread-profile index = [%d]\n", entry);
    if (!joined.is_active) {
        // The start response will tell this thread together with the others.
        free(request);
        return NETCM_SUCCESS;
    }
    QV_TRACE(0, "Call is already active, send response to thread \n");
    request->use = joined.use;
    QV_TRACE(0, "Rsp pointer = %u \n", narrow(request));
    pthread_t thread{};
    const int error = start_local_thread(LocalAnswerKind::Open, request, thread);
    if (error != 0) {
        QV_TRACE(4, "Local thread creation failed. Error = [%d]\n", error);
        return NETCM_ERR_FAILURE;
    }
    QV_TRACE(0, "Local thread to send open response created, ID = %d \n", static_cast<int>(thread));
    return NETCM_SUCCESS;
}

uint32_t NetCMClientAddCall(int32_t callId, int32_t threadIndex, int32_t profile) {
    if (static_cast<uint32_t>(callId) >= NETCM_MAX_CALLS) {
        QV_TRACE(3, "Invalid call ID [%d]\n", callId);
        return NETCM_ERR_INVALID_PARAM;
    }
    const Position began = async_stream.end_of_arrived();
    if (!vacate(callId, began))
        return NETCM_ERR_FAILURE;
    const Joined joined = enter_slot(callId, profile, threadIndex, began);
    if (joined.is_new) {
        QV_TRACE(0, "Call Info stored at index [%d]\n", callId);
    } else {
        QV_TRACE(0, "Call already exists for this APN\n");
        trace_entry(joined.entry.index, joined.entry.was_his);
    }
    return NETCM_SUCCESS;
}

}  // extern "C"
