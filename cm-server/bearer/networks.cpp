#include "bearer/networks.h"

#include <algorithm>

#include "bearer/interfaces.h"

namespace quorvel::cm {
namespace {

NetworkStatus status_of(const std::optional<InterfaceState>& state) {
    if (!state)
        return NetworkStatus::kAbsent;
    if (!state->running)
        return NetworkStatus::kDown;
    return state->addresses.empty() ? NetworkStatus::kNoAddress : NetworkStatus::kReady;
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
        if (network.kind == kind && !network.simulation)
            names.insert(network.interface);
    for (const Profile& profile : store_.connections())
        if (profile.kind == kind && !profile.interface.empty())
            names.insert(profile.interface);
    return names;
}

NetworkStatus Networks::status(NetIface kind) const {
    const auto simulated = [&](const Network& network) { return network.kind == kind && network.simulation; };
    if (std::ranges::any_of(config_.networks, simulated))
        return NetworkStatus::kReady;
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

Message Networks::indication() const {
    Message message = make_message(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND);
    message.record.Word2 = static_cast<uint32_t>(status(NETCM_IFACE_PDP));
    message.record.CallId = static_cast<uint32_t>(status(NETCM_IFACE_WIFI));
    return message;
}

}  // namespace quorvel::cm
