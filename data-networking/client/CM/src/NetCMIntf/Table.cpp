// The client table, and the operations on one call's threads and profiles.
#include "client/CM/src/NetCMIntf/Table.h"

#include <algorithm>
#include <cstddef>

#include "client/CM/src/NetCMIntf/Calls.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Exported.h"

using namespace quorvel;

// Sizes and offsets that other builds of the library and its diagnosis tools rely on.
static_assert(sizeof(NetCMAddr) == 20);
static_assert(sizeof(NetCMConnInfo) == 148);
static_assert(offsetof(NetCMConnInfo, IfaceName) == 4 && offsetof(NetCMConnInfo, DnsAddr) == 36);
static_assert(offsetof(NetCMConnInfo, DnsCount) == 76 && offsetof(NetCMConnInfo, IpAddr) == 80);
static_assert(offsetof(NetCMConnInfo, HasOptAddr1) == 100 && offsetof(NetCMConnInfo, OptAddr1) == 104);
static_assert(offsetof(NetCMConnInfo, HasOptAddr2) == 124 && offsetof(NetCMConnInfo, OptAddr2) == 128);
static_assert(sizeof(NetCMCallConnInfo) == 148);
static_assert(offsetof(NetCMCallConnInfo, Reserved) == 32 && offsetof(NetCMCallConnInfo, DnsAddr) == 36);
static_assert(offsetof(NetCMCallConnInfo, DnsCount) == 76 && offsetof(NetCMCallConnInfo, OptAddr2) == 128);
static_assert(sizeof(NetCMThreadProf) == 84);
static_assert(offsetof(NetCMCallInfo, ConnInfo) == 12 && offsetof(NetCMCallInfo, CallState) == 160);
static_assert(offsetof(NetCMCallInfo, ThreadProf) == 164 && sizeof(NetCMCallInfo) == 1508);
static_assert(offsetof(NetCMClientAppInfo, ClientId) == 4 && offsetof(NetCMClientAppInfo, RegCount) == 8);
static_assert(sizeof(NetCMProperProfReq) == 12 && sizeof(NetCMKillReq) == 8 && sizeof(NetCMTunnelReq) == 8);
#if defined(__LP64__)
static_assert(sizeof(NetCMEvent) == 24 && sizeof(NetCMThreadInfo) == 24);
static_assert(offsetof(NetCMClientAppInfo, RecvThreadId) == 16 &&
              offsetof(NetCMClientAppInfo, SyncSockFd) == 24);
static_assert(offsetof(NetCMClientAppInfo, CallInfo) == 36 &&
              offsetof(NetCMClientAppInfo, ThreadInfo) == 6072);
#else
static_assert(sizeof(NetCMEvent) == 16 && sizeof(NetCMThreadInfo) == 12);
static_assert(offsetof(NetCMClientAppInfo, RecvThreadId) == 12 &&
              offsetof(NetCMClientAppInfo, SyncSockFd) == 16);
static_assert(offsetof(NetCMClientAppInfo, CallInfo) == 28 &&
              offsetof(NetCMClientAppInfo, ThreadInfo) == 6060);
#endif

NetCMClientAppInfo g_NetCMClientAppInfo = {
    .IsRegistered = 0,
    .ClientId = -1,
    .RegCount = 0,
    .RecvThreadId = 0,
    .SyncSockFd = 0,
    .AsyncSockFd = 0,
    .AppId = 0,
    .CallInfo = {},
    .ThreadInfo = {},
    .KillReq = {},
    .TunnelReq = {},
    .ProperProfReq = {},
};

NetCMClientAppInfo* quorvel::exported::app_info = &g_NetCMClientAppInfo;

namespace quorvel {

bool client_is_registered() {
    return load(exported::app_info->ClientId) != -1 && load(exported::app_info->IsRegistered) != 0;
}

int32_t slot_of(const NetCMThreadProf& entry, int32_t profile) {
    for (int32_t slot = 0; slot < NETCM_MAX_PROFILES; ++slot)
        if (load(entry.ProfileId[slot]) == profile)
            return slot;
    return -1;
}

int32_t entry_of(const NetCMCallInfo& call, int32_t thread_index) {
    for (int32_t i = 0; i < NETCM_MAX_THREADS; ++i)
        if (load(call.ThreadProf[i].ThreadIndex) == thread_index)
            return i;
    return -1;
}

int count_profiles(const NetCMThreadProf& entry) {
    int count = 0;
    for (const int32_t& profile : entry.ProfileId)
        count += load(profile) != -1;
    return count;
}

bool holds_nothing(const NetCMThreadProf& entry) {
    return count_profiles(entry) == 0;
}

void release(NetCMThreadProf& entry) {
    store(entry.ThreadIndex, -1);
}

int count_users(const NetCMCallInfo& call) {
    int count = 0;
    for (const NetCMThreadProf& entry : call.ThreadProf)
        count += in_use(entry);
    return count;
}

NetCMEventCallback callback_of(int32_t thread_index) {
    return exported::app_info->ThreadInfo[thread_index].EventCbk;
}

void trace_deleted(int32_t profile, int32_t entry) {
    QV_TRACE(0, "Deleted Profile [%d] from the call list. Thread-profile index [%d]\n", profile, entry);
}

void trace_entry(int32_t entry, bool found) {
    if (found)
        QV_TRACE(0, "Thread exist in call list. Thread-profile index [%d]\n", entry);
    else
        QV_TRACE(0, "Thread does not exist in call list.\n");
}

void trace_looked_for(int32_t profile, bool found) {
    if (found)
        QV_TRACE(0, "Profile [%d] found in the call list\n", profile);
    else
        QV_TRACE(0, "Profile [%d] not found in the call list\n", profile);
}

}  // namespace quorvel

extern "C" {

int32_t NetCMClientThreadProfGetProfileCount(int32_t call, int32_t threadProf, int32_t* count) {
    {
        const Lock lock(table_lock);
        *count += count_profiles(table().CallInfo[call].ThreadProf[threadProf]);
    }
    QV_TRACE(0, "Porfile count = [%d]\n", *count);
    return 0;
}

int32_t NetCMClientThreadProfGetFreeProfileEntry(int32_t call, int32_t threadProf, int32_t* slot) {
    const Lock lock(table_lock);
    const int32_t found = slot_of(table().CallInfo[call].ThreadProf[threadProf], -1);
    if (found < 0)
        return 1;
    *slot = found;
    return 0;
}

int32_t NetCMClientThreadProfGetFreeThreadEntry(int32_t call, int32_t* threadProf) {
    const Lock lock(table_lock);
    const int32_t found = entry_of(table().CallInfo[call], -1);
    if (found < 0)
        return 1;
    *threadProf = found;
    return 0;
}

int32_t NetCMClientThreadProfCheckFreeProfileEntry(int32_t call, int32_t threadProf) {
    int32_t slot = 0;
    if (NetCMClientThreadProfGetFreeProfileEntry(call, threadProf, &slot) != 0)
        return 0;
    QV_TRACE(0, "Free profile entries are present. Thread-profile index [%d]\n", threadProf);
    return 1;
}

int32_t NetCMClientThreadProfCheckFreeThreadEntry(int32_t call) {
    int32_t entry = 0;
    if (NetCMClientThreadProfGetFreeThreadEntry(call, &entry) != 0)
        return 0;
    QV_TRACE(0, "Free thread entries are present. Call index [%d]\n", call);
    return 1;
}

int32_t NetCMClientThreadProfCheckThreadEntry(int32_t call, int32_t thread, int32_t* threadProf) {
    int32_t found = -1;
    {
        const Lock lock(table_lock);
        found = entry_of(table().CallInfo[call], thread);
    }
    trace_entry(found, found >= 0);
    if (found < 0)
        return 0;
    *threadProf = found;
    return 1;
}

int32_t NetCMClientThreadProfGetProfileIndex(int32_t call, int32_t threadProf, int32_t profile) {
    const Lock lock(table_lock);
    return slot_of(table().CallInfo[call].ThreadProf[threadProf], profile);
}

// Gives 1 whether or not the profile was there: its callers only want it gone.
int32_t NetCMClientThreadProfDeleteProfileEntry(int32_t call, int32_t threadProf, int32_t profile) {
    bool deleted = false;
    {
        const Lock lock(table_lock);
        NetCMThreadProf& entry = table().CallInfo[call].ThreadProf[threadProf];
        const int32_t slot = slot_of(entry, profile);
        deleted = slot >= 0;
        if (deleted)
            store(entry.ProfileId[slot], -1);
    }
    if (deleted)
        trace_deleted(profile, threadProf);
    return 1;
}

int32_t NetCMClientThreadProfCheckProfile(int32_t call, int32_t threadProf, int32_t profile) {
    const bool found = NetCMClientThreadProfGetProfileIndex(call, threadProf, profile) >= 0;
    trace_looked_for(profile, found);
    return found ? 1 : 0;
}

uint32_t NetCMClientCleanCallInfo(int32_t callIndex) {
    const Lock lock(table_lock);
    clean(slot(callIndex));
    return 0;
}

// IsRegistered and the pending proper-profile requests are left alone: the caller decides about them.
int32_t NetCMClientLibInit(void) {
    NetCMClientAppInfo& info = table();
    store(info.ClientId, -1);
    info.RegCount = 0;
    store(info.RecvThreadId, kNoThread);
    info.SyncSockFd = kNoDescriptor;
    store(info.AsyncSockFd, kNoDescriptor);
    const Lock lock(table_lock);
    for (int32_t call = 0; call < NETCM_MAX_CALLS; ++call)
        clean(slot(call));
    forget_departed();
    for (NetCMThreadInfo& thread : info.ThreadInfo) {
        store(thread.ThreadId, -1);
        thread.EventCbk = nullptr;
        thread.LastSyncError = -1;
    }
    forget_kills_and_tunnels();
    return 1;
}

}  // extern "C"
