#include "bearer/networks.h"

#include <algorithm>
#include <utility>

namespace quorvel::cm {
namespace {

size_t place_of(NetIface kind) {
    return kind == NETCM_IFACE_PDP ? 0 : 1;
}

}  // namespace

Networks::Networks(const Config& config, Store& store, Interfaces& interfaces, StatusOf status_of_managed)
    : config_(config),
      store_(store),
      interfaces_(interfaces),
      status_of_managed_(std::move(status_of_managed)) {
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
    managed_.reset();
    for (const Network& network : config_.networks)
        if (network.simulation)
            simulated_.at(place_of(network.kind)) = true;
        else if (!network.managed && !network.interface.empty())
            on_interface(network.kind, network.interface, 1);
    for (const NamedInterface& used : store_.named_interfaces())
        on_interface(used.kind, used.name, used.count);
}

void Networks::on_interface(NetIface kind, const std::string& name, int more) {
    const size_t place = place_of(kind);
    auto [found, added] = named_.try_emplace(name);
    Named& named = found->second;
    if (added)
        named.status = status_of(interfaces_.find(name));
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
    managed_.reset();
    const auto found = named_.find(name);
    if (found == named_.end())
        return;
    const NetworkStatus before = std::exchange(found->second.status, status_of(interfaces_.find(name)));
    for (size_t place = 0; place < kKinds; ++place)
        if (found->second.uses.at(place) > 0) {
            --counts_.at(place).at(static_cast<size_t>(before));
            ++counts_.at(place).at(static_cast<size_t>(found->second.status));
        }
}

NetworkStatus Networks::managed(size_t place) const {
    if (!managed_) {
        managed_.emplace();
        for (const Network& network : config_.networks)
            if (network.managed) {
                NetworkStatus& best = managed_->at(place_of(network.kind));
                best = std::max(best, status_of_managed_(network));
            }
    }
    return managed_->at(place);
}

NetworkStatus Networks::status(NetIface kind) const {
    const size_t place = place_of(kind);
    if (simulated_.at(place))
        return NetworkStatus::kReady;
    size_t best = kStatuses - 1;
    while (best > 0 && counts_.at(place).at(best) == 0)
        --best;
    return std::max(static_cast<NetworkStatus>(best), managed(place));
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
