// Lookups over threads and calls.
#include <sys/syscall.h>
#include <unistd.h>

#include "client/CM/src/NetCMClientInternal/Stream.h"
#include "client/CM/src/NetCMIntf/Calls.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Exported.h"

using namespace quorvel;

namespace {

// What a look-up by profile gives back: the call may be gone when its lock is.
struct FoundCall {
    int32_t index = -1;
    int32_t call_id = -1;
    bool is_closing = false;
};

FoundCall find_by_profile(int32_t profile, InUse in_use) {
    const Lock lock(table_lock);
    const Call call = call_with(profile, in_use);
    if (!call)
        return {-1, -1, is_closing_elsewhere(profile)};
    return {key_of(call).index, load(call.record->CallId), is_closing_for(call, profile)};
}

}  // namespace

namespace quorvel {

int32_t entry_of_thread(const NetCMCallInfo& call, int32_t tid, int32_t profile) {
    for (int32_t i = 0; i < NETCM_MAX_THREADS; ++i) {
        const NetCMThreadProf& entry = call.ThreadProf[i];
        if (in_use(entry) && load(exported::app_info->ThreadInfo[entry.ThreadIndex].ThreadId) == tid &&
            holds(entry, profile))
            return i;
    }
    return -1;
}

uint32_t find_free_thread(int32_t& index) {
    for (int32_t i = 0; i < NETCM_MAX_THREADS; ++i) {
        const NetCMThreadInfo& thread = table().ThreadInfo[i];
        if (thread.ThreadId == -1 && thread.EventCbk == nullptr) {
            index = i;
            QV_TRACE(0, "Found free thread index [%d]\n", i);
            return NETCM_SUCCESS;
        }
    }
    return NETCM_ERR_NO_FREE_ENTRY;
}

}  // namespace quorvel

extern "C" {

// Exported as `gettid` beside NetCMGetCurrentTid because applications for older systems have it from here:
// not as the default, so that an application that is linked today has the C library's.
pid_t quorvel_gettid(void);
pid_t quorvel_gettid(void) {
    return static_cast<pid_t>(syscall(SYS_gettid));
}
__asm__(".symver quorvel_gettid, gettid@QUORVEL_PRIVATE_4.0");

int32_t NetCMGetCurrentTid(void) {
    return static_cast<int32_t>(syscall(SYS_gettid));
}

// Also called by queries before they take the mutex.
int32_t NetCMGetThreadIndex(int32_t tid, int32_t* index) {
    for (int32_t i = 0; i < NETCM_MAX_THREADS; ++i) {
        if (load(exported::app_info->ThreadInfo[i].ThreadId) != tid)
            continue;
        *index = i;
        QV_TRACE(0, "Found thread [%d] index at [%d]\n", tid, i);
        return 0;
    }
    QV_TRACE(2, "Thread [%d] not found\n", tid);
    return -1;
}

uint32_t NetCMGetCallIdFromProfileId(int32_t profile, int32_t* callId, int32_t* callIndex) {
    const FoundCall call = find_by_profile(profile, InUse::Any);
    *callId = call.call_id;
    if (call.index < 0)
        return NETCM_ERR_INVALID_PROFILE;
    *callIndex = call.index;
    QV_TRACE(0, "Call ID = [%d]\n", call.call_id);
    return NETCM_SUCCESS;
}

// NETCM_ERR_ALREADY_EXISTS lets the caller join the call; it is no failure.
uint32_t NetCMClientValidateConnection(int32_t profile, int32_t* callIndex) {
    const FoundCall call = find_by_profile(profile, InUse::One);
    if (call.is_closing) {
        QV_TRACE(2, "A call is closing with profile [%d] \n", profile);
        return NETCM_ERR_CALL_CLOSING;
    }
    if (call.index < 0) {
        QV_TRACE(0, "No Call exists with profile [%d] \n", profile);
        return NETCM_SUCCESS;
    }
    *callIndex = call.index;
    QV_TRACE(0, "A call already exist with profile [%d] \n", profile);
    return NETCM_ERR_ALREADY_EXISTS;
}

// A thread that already uses a full call cannot add a profile to it, although its own entry would have room:
// callers count on the limit being the call's.
uint32_t NetCMClientValidateAppThread(int32_t tid, int32_t callIndex, int32_t profile) {
    bool has_it = false;
    bool has_room = false;
    {
        const Lock lock(table_lock);
        const NetCMCallInfo& call = *slot(callIndex).record;
        has_it = entry_of_thread(call, tid, profile) >= 0;
        has_room = entry_of(call, -1) >= 0;
    }
    if (has_it) {
        QV_TRACE(2, "A call already exist for thread [%d] with profile [%d] \n", tid, profile);
        return NETCM_ERR_ALREADY_EXISTS;
    }
    return has_room ? NETCM_SUCCESS : NETCM_ERR_MAX_LIMIT;
}

// Called by name resolution on threads that do not hold the mutex.
uint32_t NetCMCheckValidProfileId(int32_t profile) {
    if (profile <= 0) {
        QV_TRACE(3, "Invalid Profile ID [%d] \n", profile);
        return NETCM_ERR_INVALID_PROFILE;
    }
    const FoundCall call = find_by_profile(profile, InUse::Any);
    if (call.index < 0)
        return NETCM_ERR_INVALID_PROFILE;
    QV_TRACE(0, "Profile[%d] exist for the callinstance %d \n", profile, call.index);
    return NETCM_SUCCESS;
}

}  // extern "C"
