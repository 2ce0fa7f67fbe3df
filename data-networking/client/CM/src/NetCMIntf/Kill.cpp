// Killing a connection: the server tears it down, whatever other users it has.
#include "client/CM/src/NetCMIntf/KilledProfile.h"
#include "client/CM/src/NetCMIntf/Request.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

namespace {

constexpr int32_t kNoProfile = 0;

// By call.
int32_t killed_profiles[NETCM_MAX_CALLS] = {};

bool was_left_by_its_killer(const NetCMCallInfo& call) QV_REQUIRES(app_mutex) {
    return call.InUse == 1 && call.CallState == kKillSent;
}

// What the pending kills say about one more.
struct PendingKills {
    NetCMKillReq* free = nullptr;
    bool asked_by_caller = false;
    bool asked_by_another = false;
};

PendingKills scan(int32_t tid, int32_t profile) QV_REQUIRES(app_mutex) {
    PendingKills pending;
    for (NetCMKillReq& request : table().KillReq) {
        if (request.ThreadId == -1) {
            if (pending.free == nullptr)
                pending.free = &request;
        } else if (request.ProfileId == profile) {
            (request.ThreadId == tid ? pending.asked_by_caller : pending.asked_by_another) = true;
        }
    }
    return pending;
}

uint32_t send_kill_request(int32_t profile, int32_t thread_index) QV_REQUIRES(app_mutex) {
    wire::RequestHeader request = request_header(wire::NETCM_CLIENT_KILL_REQ);
    request.Arg4 = static_cast<uint32_t>(profile);
    const uint32_t status = send_header(request);
    if (status != NETCM_SUCCESS)
        table().ThreadInfo[thread_index].LastSyncError = -1;
    return status;
}

// The killer's own use ends at once; the other users keep theirs until the response.
void give_up(NetCMCallInfo& call, int32_t thread_index, int32_t profile) QV_REQUIRES(app_mutex) {
    call.CallState = kKillSent;
    const int32_t entry = entry_of(call, thread_index);
    if (entry >= 0) {
        NetCMClientThreadProfDeleteProfileEntry(index_of(call), entry, profile);
        if (holds_nothing(call.ThreadProf[entry]))
            release(call.ThreadProf[entry]);
    }
    remember_killed_profile(call, profile);
}

NetCMCallInfo* call_of(int32_t profile) QV_REQUIRES(app_mutex) {
    int32_t call_id = -1;
    int32_t index = -1;
    if (NetCMGetCallIdFromProfileId(profile, &call_id, &index) != NETCM_SUCCESS)
        return nullptr;
    return &table().CallInfo[index];
}

uint32_t kill_profile(int32_t tid, int32_t profile) QV_REQUIRES(app_mutex) {
    int32_t thread_index = 0;
    uint32_t status = admit_caller(QV_HERE, tid, UnknownThread::IsNotFound, thread_index);
    if (status != NETCM_SUCCESS)
        return status;
    const PendingKills pending = scan(tid, profile);
    if (pending.asked_by_caller)
        return NETCM_ERR_CLOSING;
    if (pending.free == nullptr)
        return NETCM_ERR_NO_FREE_KILL_ENTRY;
    if (pending.asked_by_another) {
        // One request is enough; its response is delivered to both.
        *pending.free = {tid, profile};
        return NETCM_SUCCESS;
    }
    NetCMCallInfo* call = call_of(profile);
    if (call == nullptr) {
        QV_TRACE(2, "Profile [%d] is not associated with any call\n", profile);
    } else if (call->CallState == kStopSent) {
        QV_TRACE(2, "Connection is already getting closed\n");
        return NETCM_ERR_CALL_CLOSING;
    }
    status = send_kill_request(profile, thread_index);
    if (status != NETCM_SUCCESS)
        return status;
    *pending.free = {tid, profile};
    if (call != nullptr)
        give_up(*call, thread_index, profile);
    return NETCM_SUCCESS;
}

}  // namespace

namespace quorvel {

void remember_killed_profile(const NetCMCallInfo& call, int32_t profile) {
    killed_profiles[index_of(call)] = profile;
}

void forget_killed_profile(int32_t index) {
    killed_profiles[index] = kNoProfile;
}

NetCMCallInfo* call_left_by_its_killer(int32_t profile) {
    for (NetCMCallInfo& call : table().CallInfo)
        if (was_left_by_its_killer(call) && killed_profiles[index_of(call)] == profile)
            return &call;
    // One without users that nobody has a name for is the next best: no other response would clean it.
    for (NetCMCallInfo& call : table().CallInfo)
        if (was_left_by_its_killer(call) && killed_profiles[index_of(call)] == kNoProfile &&
            count_users(call) == 0)
            return &call;
    return nullptr;
}

}  // namespace quorvel

extern "C" {

uint32_t NetCMConnectionKill(int32_t profile) {
    if (profile < 1) {
        QV_TRACE(5, "Invalid profile ID = %d \n", profile);
        return NETCM_ERR_INVALID_PROFILE;
    }
    const AppMutexGuard guard(QV_HERE);
    QV_TRACE(0, "Request to kill the connection. Profile ID = %d \n", profile);
    return kill_profile(guard.thread_id(), profile);
}

}  // extern "C"
