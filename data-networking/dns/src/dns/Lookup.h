// The two halves of a lookup: whom to ask, and asking.
#pragma once

#include "dns/src/NetDNSPrivate.h"

namespace quorvel {

// Where a profile's queries go.
struct Route {
    bool local = false;  // the name means this machine: nobody is asked
    char ifname[sizeof(NetCMConnInfo::IfaceName) + 1] = {};
    in_addr_t servers[NETCM_MAX_DNS] = {};  // 0: none
};

// Whether a name may be asked for over a profile; why not is traced.
bool is_acceptable(int profile_id, const char* hostname);

// kResolved, or kInvalid. This half alone asks the connection manager, which may wait for its mutex.
int find_route(int profile_id, const char* hostname, Route& route);

int resolve(const Route& route, const char* hostname, hostent** result, char* buffer, int length);

}  // namespace quorvel
