// What the server needs of a stored profile to bring a connection up.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>
#include <vector>

#include "quorvel/NetCM.h"

namespace quorvel::cm {

struct Profile {
    int32_t id = 0;
    NetIface kind = NETCM_IFACE_PDP;
    std::string name;
    std::string access_point;  // APN or network name
    std::string interface;     // empty: the network's
    std::vector<in_addr> dns;  // empty: the network's
};

// "profile 1 \"local\"".
inline std::string describe(const Profile& profile) {
    return "profile " + std::to_string(profile.id) + " \"" + profile.name + "\"";
}

}  // namespace quorvel::cm
