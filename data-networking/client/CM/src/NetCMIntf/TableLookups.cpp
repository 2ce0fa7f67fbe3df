// Lookups over threads and calls.
#include <sys/syscall.h>
#include <unistd.h>

#include "client/CM/src/NetCMIntf/Table.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

namespace {

// The entry in use of a call that holds the profile, or null.
const NetCMThreadProf* user_of(const NetCMCallInfo& call, int32_t profile) {
    for (const NetCMThreadProf& entry : call.ThreadProf)
        if (in_use(entry) && holds(entry, profile))
            return &entry;
    return nullptr;
}

// Reads only what can be read without the mutex.
const NetCMCallInfo* call_with(int32_t profile) {
    for (const NetCMCallInfo& call : g_NetCMClientAppInfo.CallInfo)
        if (load(call.InUse) != 0 && user_of(call, profile) != nullptr)
            return &call;
    return nullptr;
}

}  // namespace

namespace quorvel {

const NetCMThreadProf* entry_of_thread(const NetCMCallInfo& call, int32_t tid, int32_t profile) {
    for (const NetCMThreadProf& entry : call.ThreadProf)
        if (in_use(entry) && table().ThreadInfo[entry.ThreadIndex].ThreadId == tid && holds(entry, profile))
            return &entry;
    return nullptr;
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

// Exported beside NetCMGetCurrentTid because applications for older systems link to it here.
pid_t gettid(void) noexcept {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

int32_t NetCMGetCurrentTid(void) {
    return static_cast<int32_t>(syscall(SYS_gettid));
}

// Also called by queries before they take the mutex.
int32_t NetCMGetThreadIndex(int32_t tid, int32_t* index) {
    for (int32_t i = 0; i < NETCM_MAX_THREADS; ++i) {
        if (load(g_NetCMClientAppInfo.ThreadInfo[i].ThreadId) != tid)
            continue;
        *index = i;
        QV_TRACE(0, "Found thread [%d] index at [%d]\n", tid, i);
        return 0;
    }
    QV_TRACE(2, "Thread [%d] not found\n", tid);
    return -1;
}

uint32_t NetCMGetCallIdFromProfileId(int32_t profile, int32_t* callId, int32_t* callIndex) {
    const NetCMCallInfo* call = call_with(profile);
    if (call == nullptr) {
        *callId = -1;
        return NETCM_ERR_INVALID_PROFILE;
    }
    *callId = call->CallId;
    *callIndex = index_of(*call);
    QV_TRACE(0, "Call ID = [%d]\n", call->CallId);
    return NETCM_SUCCESS;
}

// NETCM_ERR_ALREADY_EXISTS lets the caller join the call; it is no failure.
uint32_t NetCMClientValidateConnection(int32_t profile, int32_t* callIndex) {
    const NetCMCallInfo* call = call_with(profile);
    if (call == nullptr) {
        QV_TRACE(0, "No Call exists with profile [%d] \n", profile);
        return NETCM_SUCCESS;
    }
    if (call->CallState > kSuspended) {
        QV_TRACE(2, "A call is closing with profile [%d] \n", profile);
        return NETCM_ERR_CALL_CLOSING;
    }
    *callIndex = index_of(*call);
    QV_TRACE(0, "A call already exist with profile [%d] \n", profile);
    return NETCM_ERR_ALREADY_EXISTS;
}

// A thread that already uses a full call cannot add a profile to it, although its own entry would have room:
// callers count on the limit being the call's.
uint32_t NetCMClientValidateAppThread(int32_t tid, int32_t callIndex, int32_t profile) {
    const NetCMCallInfo& call = table().CallInfo[callIndex];
    if (entry_of_thread(call, tid, profile) != nullptr) {
        QV_TRACE(2, "A call already exist for thread [%d] with profile [%d] \n", tid, profile);
        return NETCM_ERR_ALREADY_EXISTS;
    }
    return entry_of(call, -1) >= 0 ? NETCM_SUCCESS : NETCM_ERR_MAX_LIMIT;
}

// Called by name resolution on threads that do not hold the mutex.
uint32_t NetCMCheckValidProfileId(int32_t profile) {
    if (profile <= 0) {
        QV_TRACE(3, "Invalid Profile ID [%d] \n", profile);
        return NETCM_ERR_INVALID_PROFILE;
    }
    const NetCMCallInfo* call = call_with(profile);
    if (call == nullptr)
        return NETCM_ERR_INVALID_PROFILE;
    QV_TRACE(0, "Profile[%d] exist for the callinstance %d \n", profile, index_of(*call));
    return NETCM_SUCCESS;
}

uint32_t NetCMClientAddCall(int32_t callId, int32_t threadIndex, int32_t profile) {
    if (static_cast<uint32_t>(callId) >= NETCM_MAX_CALLS) {
        QV_TRACE(3, "Invalid call ID [%d]\n", callId);
        return NETCM_ERR_INVALID_PARAM;
    }
    NetCMCallInfo& call = table().CallInfo[callId];
    int32_t thread_prof = 0;
    int32_t slot = 0;
    if (call.InUse == 1 && call.CallId == callId) {
        QV_TRACE(0, "Call already exists for this APN\n");
        // The callers have checked that there is room; where there is none, the first place is overwritten.
        if (NetCMClientThreadProfCheckThreadEntry(callId, threadIndex, &thread_prof) == 1) {
            NetCMClientThreadProfGetFreeProfileEntry(callId, thread_prof, &slot);
            store(call.ThreadProf[thread_prof].ProfileId[slot], profile);
            return NETCM_SUCCESS;
        }
        NetCMClientThreadProfGetFreeThreadEntry(callId, &thread_prof);
    } else {
        store(call.CallId, callId);
        call.ConnInfo = {};
        store(call.InUse, 1);
        QV_TRACE(0, "Call Info stored at index [%d]\n", callId);
    }
    store(call.ThreadProf[thread_prof].ProfileId[0], profile);
    store(call.ThreadProf[thread_prof].ThreadIndex, threadIndex);
    return NETCM_SUCCESS;
}

}  // extern "C"
