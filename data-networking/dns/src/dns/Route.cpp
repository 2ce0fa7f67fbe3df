// Whom to ask: the interface and the servers of a profile.
#include <netinet/in.h>

#include <cstring>

#include "client/CM/src/NetCMPrivate.h"
#include "common/Trace.h"
#include "dns/src/dns/Lookup.h"

namespace quorvel {
namespace {

void take_servers(const NetCMConnInfo& info, Route& route) {
    for (size_t index = 0; index < NETCM_MAX_DNS; ++index)
        memcpy(&route.servers[index], info.DnsAddr[index].Addr, sizeof route.servers[index]);
}

}  // namespace

bool is_acceptable(int profile_id, const char* hostname) {
    if (ps_check_for_localhost(hostname) != 1 &&
        NetCMCheckValidProfileId(profile_id) == NETCM_ERR_INVALID_PROFILE) {
        QV_TRACE(5, "Invalid profile ID\n");
        return false;
    }
    if (ps_check_valid_hostname(hostname) != kResolved) {
        QV_TRACE(5, "Invalid HostName\n");
        return false;
    }
    return true;
}

int find_route(int profile_id, const char* hostname, Route& route) {
    route.local = ps_check_for_localhost(hostname) == 1;
    if (route.local)
        return kResolved;
    QV_TRACE(0, "Request to get hostname \n");
    if (!is_acceptable(profile_id, hostname))
        return kInvalid;
    NetCMConnInfo info{};
    if (getdevinfo(profile_id, &info) != 1 || info.IfaceName[0] == '\0') {
        QV_TRACE(4, "Error getting device info \n");
        return kInvalid;
    }
    memcpy(route.ifname, info.IfaceName, sizeof info.IfaceName);
    take_servers(info, route);
    return kResolved;
}

}  // namespace quorvel

extern "C" int getdevinfo(int profile_id, NetCMConnInfo* devinfo) {
    return NetCMDeviceGetInfo(profile_id, devinfo) == NETCM_SUCCESS ? 1 : -1;
}
