#include "networks.h"

#include <algorithm>

#include "interfaces.h"

namespace quorvel::cm {
namespace {

NetworkStatus status_of(const std::optional<InterfaceState>& state) {
    if (!state)
        return NetworkStatus::kAbsent;
    if (!state->running)
        return NetworkStatus::kDown;
    return state->address ? NetworkStatus::kReady : NetworkStatus::kNoAddress;
}

}  // namespace

const char* to_text(NetworkStatus status) {
    switch (status) {
        case NetworkStatus::kAbsent:
            return "absent";
        case NetworkStatus::kDown:
            return "down";
        case NetworkStatus::kNoAddress:
            return "without an address";
        case NetworkStatus::kReady:
            return "ready";
    }
    return "unknown";
}

std::set<std::string> Networks::interfaces(NetIface kind) const {
    std::set<std::string> names;
    for (const Network& network : config_.networks)
        if (network.kind == kind)
            names.insert(network.interface);
    for (const Profile& profile : store_.connections())
        if (profile.kind == kind && !profile.interface.empty())
            names.insert(profile.interface);
    return names;
}

NetworkStatus Networks::status(NetIface kind) const {
    NetworkStatus best = NetworkStatus::kAbsent;
    for (const std::string& name : interfaces(kind))
        best = std::max(best, status_of(interface_state(name)));
    return best;
}

uint32_t Networks::available() const {
    uint32_t mask = 0;
    for (const NetIface kind : {NETCM_IFACE_PDP, NETCM_IFACE_WIFI})
        if (status(kind) >= NetworkStatus::kNoAddress)
            mask |= kind;
    return mask;
}

}  // namespace quorvel::cm
