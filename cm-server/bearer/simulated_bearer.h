// Connections that need no network: up after a while, refused or lost as the configuration says.
#pragma once

#include <array>
#include <memory>

#include "bearer/bearer.h"
#include "calls.h"
#include "events.h"

namespace quorvel::cm {

class SimulatedBearer : public Bearer {
  public:
    SimulatedBearer(event_base* base, BearerEvents& events);

    void connect(uint32_t call, const Network& network) override;
    void disconnect(uint32_t call) override;

  private:
    void set_up(uint32_t call);

    BearerEvents& events_;
    std::array<Network, kCallCount> networks_;
    std::array<std::unique_ptr<Timer>, kCallCount> set_ups_;
    std::array<std::unique_ptr<Timer>, kCallCount> losses_;
};

}  // namespace quorvel::cm
