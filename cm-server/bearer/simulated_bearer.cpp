#include "bearer/simulated_bearer.h"

#include "guard.h"

namespace quorvel::cm {

SimulatedBearer::SimulatedBearer(event_base* base, BearerEvents& events) : events_(events) {
    for (uint32_t call = 0; call < kCallCount; ++call) {
        set_ups_[call] = std::make_unique<Timer>(base, [this, call] {
            if (!guarded("the setting up of a call", [=, this] { set_up(call); }))
                events_.on_failed(call);
        });
        losses_[call] =
            std::make_unique<Timer>(base, [this, call] { events_.on_ended(call, Reason::kLost); });
    }
}

void SimulatedBearer::connect(uint32_t call, const Network& network) {
    networks_.at(call) = network;
    set_ups_[call]->start(network.simulation->delay);
}

void SimulatedBearer::disconnect(uint32_t call) {
    set_ups_.at(call)->stop();
    losses_[call]->stop();
}

void SimulatedBearer::set_up(uint32_t call) {
    const Network& network = networks_[call];
    if (network.simulation->refusal != Reason::kNone)
        return events_.on_refused(call, network.simulation->refusal);
    if (network.simulation->lost_after)
        losses_[call]->start(*network.simulation->lost_after);
    events_.on_up(call, {network.interface, network.simulation->address, network.dns});
}

}  // namespace quorvel::cm
