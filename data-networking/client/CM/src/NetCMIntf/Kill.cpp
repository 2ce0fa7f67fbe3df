// Killing a connection: the server tears it down, whatever other users it has.
#include "client/CM/src/NetCMIntf/Calls.h"
#include "client/CM/src/NetCMIntf/Request.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Exported.h"

using namespace quorvel;

namespace {

// What the pending kills say about one more.
struct PendingKills {
    NetCMKillReq* free = nullptr;
    bool asked_by_caller = false;
    bool asked_by_another = false;
};

PendingKills scan(int32_t tid, int32_t profile) {
    const Lock lock(table_lock);
    PendingKills pending;
    for (NetCMKillReq& request : exported::app_info->KillReq) {
        if (request.ThreadId == -1) {
            if (pending.free == nullptr)
                pending.free = &request;
        } else if (request.ProfileId == profile) {
            (request.ThreadId == tid ? pending.asked_by_caller : pending.asked_by_another) = true;
        }
    }
    return pending;
}

void take(NetCMKillReq& pending, int32_t tid, int32_t profile) {
    const Lock lock(table_lock);
    pending = {tid, profile};
}

uint32_t send_kill_request(int32_t profile, int32_t thread_index) QV_REQUIRES(app_mutex) {
    wire::RequestHeader request = request_header(wire::NETCM_CLIENT_KILL_REQ);
    request.Arg4 = static_cast<uint32_t>(profile);
    const uint32_t status = send_header(request);
    if (status != NETCM_SUCCESS)
        table().ThreadInfo[thread_index].LastSyncError = -1;
    return status;
}

// What a kill finds to kill.
struct Target {
    bool exists = false;
    bool is_being_stopped = false;
    CallKey key = {-1, 0};
};

Target target_of(int32_t profile) QV_REQUIRES(app_mutex) {
    int32_t call_id = -1;
    int32_t index = -1;
    const bool found = NetCMGetCallIdFromProfileId(profile, &call_id, &index) == NETCM_SUCCESS;
    const Lock lock(table_lock);
    // Looked up once more: the end of the server may have come between.
    const Call call = found ? call_with(profile, InUse::Any) : Call{};
    return call ? Target{true, is_being_stopped(call), key_of(call)}
                : Target{false, is_closing_elsewhere(profile), {-1, 0}};
}

// The killer's own use ends at once; the other users keep theirs until the response. Gives back the entry
// that the profile has been taken out of, or -1.
int32_t give_up(CallKey key, int32_t thread_index, int32_t profile) {
    const Lock lock(table_lock);
    const Call call = find(key);
    if (!call)
        return -1;
    call.record->CallState = kKillSent;
    ask_for_end(call, Ending::Kill, profile);
    const int32_t entry = entry_of(*call.record, thread_index);
    if (entry < 0)
        return -1;
    const bool held = holds(call.record->ThreadProf[entry], profile);
    take_profile(call, entry, profile);
    return held ? entry : -1;
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
        take(*pending.free, tid, profile);
        return NETCM_SUCCESS;
    }
    const Target target = target_of(profile);
    if (target.is_being_stopped) {
        QV_TRACE(2, "Connection is already getting closed\n");
        return NETCM_ERR_CALL_CLOSING;
    }
    if (!target.exists)
        QV_TRACE(2, "Profile [%d] is not associated with any call\n", profile);
    status = send_kill_request(profile, thread_index);
    if (status != NETCM_SUCCESS)
        return status;
    {
        const Lock lock(table_lock);
        *pending.free = {tid, profile};
        note_kill(profile, target.key);
    }
    if (target.exists) {
        const int32_t entry = give_up(target.key, thread_index, profile);
        if (entry >= 0)
            trace_deleted(profile, entry);
    }
    return NETCM_SUCCESS;
}

}  // namespace

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
