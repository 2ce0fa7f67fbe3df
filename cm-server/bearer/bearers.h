// Each connection over the bearer that its network names.
#pragma once

#include <algorithm>
#include <utility>

#include "bearer/link_bearer.h"
#include "bearer/simulated_bearer.h"
#include "networkmanager/networkmanager_bearer.h"

namespace quorvel::cm {

class Bearers : public Bearer {
  public:
    Bearers(event_base* base, std::chrono::milliseconds limit, Interfaces& interfaces,
            NetworkManagerBearer::RecordOf record_of, std::string notes,
            std::function<void()> network_changed, BearerEvents& events)
        : link_(base, limit, interfaces, events),
          simulated_(base, events),
          networkmanager_(base, interfaces, std::move(record_of), std::move(notes),
                          std::move(network_changed), events) {}

    void connect(uint32_t call, const Network& network) override { of(network).connect(call, network); }
    void disconnect(uint32_t call) override {
        link_.disconnect(call);
        simulated_.disconnect(call);
        networkmanager_.disconnect(call);
    }
    void use(const Config& config) {
        link_.use(config.set_up_limit);
        if (std::ranges::any_of(config.networks,
                                [](const Network& network) { return network.managed.has_value(); }))
            networkmanager_.be_ready();
    }
    void look_again() {
        link_.look_again();
        networkmanager_.look_again();
    }

    // Of a network that NetworkManager leads to.
    NetworkStatus status(const Network& managed) const { return networkmanager_.status(managed); }

    void finish() { networkmanager_.finish(); }

  private:
    Bearer& of(const Network& network) {
        if (network.simulation)
            return simulated_;
        return network.managed ? static_cast<Bearer&>(networkmanager_) : link_;
    }

    LinkBearer link_;
    SimulatedBearer simulated_;
    NetworkManagerBearer networkmanager_;
};

}  // namespace quorvel::cm
