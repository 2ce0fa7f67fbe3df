#include "bearer/networks.h"

#include <utility>

namespace quorvel::cm {
namespace {

size_t place_of(NetIface kind) {
    return kind == NETCM_IFACE_PDP ? 0 : 1;
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

Networks::Networks(const Config& config, Store& store, Interfaces& interfaces)
    : config_(config), store_(store), interfaces_(interfaces) {
    count();
    store_.watch(this);
    interfaces_.watch([this](const std::string& name) { look_at(name); });
}

Networks::~Networks() {
    interfaces_.watch({});
    store_.watch(nullptr);
}

void Networks::count() {
    named_.clear();
    counts_ = {};
    simulated_ = {};
    for (const Network& network : config_.networks)
        if (network.simulation)
            simulated_.at(place_of(network.kind)) = true;
        else
            on_interface(network.kind, network.interface, 1);
    for (const NamedInterface& used : store_.named_interfaces())
        on_interface(used.kind, used.name, used.count);
}

void Networks::on_interface(NetIface kind, const std::string& name, int more) {
    const size_t place = place_of(kind);
    auto [found, added] = named_.try_emplace(name);
    Named& named = found->second;
    if (added)
        named.status = status_of(name);
    uint32_t& uses = named.uses.at(place);
    uint32_t& count = counts_.at(place).at(static_cast<size_t>(named.status));
    const bool before = uses > 0;
    uses += static_cast<uint32_t>(more);
    if (before != (uses > 0))
        before ? --count : ++count;
    if (named.uses == std::array<uint32_t, kKinds>{})
        named_.erase(found);
}

void Networks::look_at(const std::string& name) {
    const auto found = named_.find(name);
    if (found == named_.end())
        return;
    const NetworkStatus before = std::exchange(found->second.status, status_of(name));
    for (size_t place = 0; place < kKinds; ++place)
        if (found->second.uses.at(place) > 0) {
            --counts_.at(place).at(static_cast<size_t>(before));
            ++counts_.at(place).at(static_cast<size_t>(found->second.status));
        }
}

NetworkStatus Networks::status_of(const std::string& name) const {
    const InterfaceState* state = interfaces_.find(name);
    if (state == nullptr)
        return NetworkStatus::kAbsent;
    if (!state->running)
        return NetworkStatus::kDown;
    return state->addresses.empty() ? NetworkStatus::kNoAddress : NetworkStatus::kReady;
}

NetworkStatus Networks::status(NetIface kind) const {
    const size_t place = place_of(kind);
    if (simulated_.at(place))
        return NetworkStatus::kReady;
    size_t best = kStatuses - 1;
    while (best > 0 && counts_.at(place).at(best) == 0)
        --best;
    return static_cast<NetworkStatus>(best);
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
