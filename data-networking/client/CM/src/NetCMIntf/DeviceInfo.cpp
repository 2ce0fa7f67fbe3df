// The details of a connection, from the client table alone.
#include <cstring>

#include "client/CM/src/NetCMIntf/Calls.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

namespace {

// Which entry of the call holds the profile, and what was stored for the call.
struct Found {
    int entries = 0;  // looked at
    bool holds = false;
    bool is_active = false;
    NetCMCallConnInfo stored = {};
};

Found look_at(int32_t index, int32_t profile) {
    const Lock lock(table_lock);
    const NetCMCallInfo& call = *slot(index).record;
    Found found;
    found.is_active = load(call.InUse) != 0 && call.IsActive == 1;
    while (found.is_active && !found.holds && found.entries < NETCM_MAX_THREADS)
        found.holds = holds(call.ThreadProf[found.entries++], profile);
    found.is_active &= load(call.CallId) != -1 && !is_unsure(slot(index), profile);
    found.stored = call.ConnInfo;
    return found;
}

// Looks for the active call that holds the profile, with a trace for each entry on the way.
bool find_active(int32_t profile, NetCMCallConnInfo& stored) {
    for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index) {
        const Found found = look_at(index, profile);
        for (int i = 1; i <= found.entries; ++i)
            trace_looked_for(profile, found.holds && i == found.entries);
        if (!found.holds)
            continue;
        stored = found.stored;
        return found.is_active;
    }
    return false;
}

// Whatever its stored type, an address is handed out as IPv4; the bytes behind the first four stay the
// caller's.
void hand_out(NetCMAddr& to, const NetCMAddr& from) {
    to.Type = 0;
    memcpy(to.Addr, from.Addr, 4);
}

void fill(NetCMConnInfo& info, int32_t profile, const NetCMCallConnInfo& stored) {
    info.ProfileId = profile;
    memcpy(info.IfaceName, stored.IfaceName, sizeof info.IfaceName);
    hand_out(info.DnsAddr[0], stored.DnsAddr[0]);
    hand_out(info.DnsAddr[1], stored.DnsAddr[1]);
    // Both places count, also an empty one: callers look for an address of 0 to find the end.
    info.DnsCount = NETCM_MAX_DNS;
    hand_out(info.IpAddr, stored.IpAddr);
    if (stored.HasOptAddr1 == 1) {
        info.HasOptAddr1 = 1;
        // The second address in both places: the first was never handed out here, and callers rely on that.
        hand_out(info.OptAddr1, stored.OptAddr2);
    }
    if (stored.HasOptAddr2 == 1) {
        info.HasOptAddr2 = 1;
        hand_out(info.OptAddr2, stored.OptAddr2);
    }
}

}  // namespace

extern "C" {

uint32_t NetCMDeviceGetInfo(int32_t profileId, NetCMConnInfo* devinfo) {
    QV_TRACE(0, "Getting device request for profile id [%d] \n", profileId);
    if (devinfo == nullptr) {
        QV_TRACE(5, "Invalid parameter... devinfo = [0x%x] \n", narrow(devinfo));
        return NETCM_ERR_INVALID_PARAM;
    }
    if (profileId <= 0) {
        QV_TRACE(5, "Invalid parameter... Profile ID [%d]\n", profileId);
        return NETCM_ERR_INVALID_PROFILE;
    }
    const AppMutexGuard guard(QV_HERE);
    if (!client_is_registered()) {
        QV_TRACE(2, "Cleint is not yet registered with CM\n");
        return NETCM_ERR_NOT_REGISTERED;
    }
    NetCMCallConnInfo stored;
    if (!find_active(profileId, stored))
        return NETCM_ERR_NOT_ACTIVE;
    fill(*devinfo, profileId, stored);
    QV_TRACE(0, "Profile [%d] is Active\n", profileId);
    return NETCM_SUCCESS;
}

}  // extern "C"
