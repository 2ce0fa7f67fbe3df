// Each connection over the bearer that its network names.
#pragma once

#include "bearer/link_bearer.h"
#include "bearer/simulated_bearer.h"

namespace quorvel::cm {

class Bearers : public Bearer {
  public:
    Bearers(event_base* base, std::chrono::milliseconds limit, Interfaces& interfaces, BearerEvents& events)
        : link_(base, limit, interfaces, events), simulated_(base, events) {}

    void connect(uint32_t call, const Network& network) override {
        network.simulation ? simulated_.connect(call, network) : link_.connect(call, network);
    }
    void disconnect(uint32_t call) override {
        link_.disconnect(call);
        simulated_.disconnect(call);
    }
    void use(std::chrono::milliseconds limit) { link_.use(limit); }
    void look_again() { link_.look_again(); }

  private:
    LinkBearer link_;
    SimulatedBearer simulated_;
};

}  // namespace quorvel::cm
