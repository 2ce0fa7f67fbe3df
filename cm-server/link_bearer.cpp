#include "link_bearer.h"

#include "interfaces.h"

namespace quorvel::cm {

LinkBearer::LinkBearer(event_base* base, const Config& config, BearerEvents& events)
    : base_(base), config_(config), events_(events) {}

void LinkBearer::connect(uint32_t call, const Profile& profile) {
    Link& link = links_.at(call);
    link.network = network_of(config_, profile);
    link.check = std::make_unique<Timer>(base_, [this, call] { check(call); });
    link.check->start(std::chrono::milliseconds(0));
}

void LinkBearer::disconnect(uint32_t call) {
    links_.at(call) = Link{};
}

void LinkBearer::check(uint32_t call) {
    const Link& link = links_[call];
    const auto state = interface_state(link.network.interface);
    if (!state)
        events_.on_refused(call, Reason::kNoInterface);
    else if (!state->running)
        events_.on_refused(call, Reason::kInterfaceDown);
    else if (!state->address)
        events_.on_refused(call, Reason::kNoAddress);
    else
        events_.on_up(call, {link.network.interface, *state->address, link.network.dns});
}

}  // namespace quorvel::cm
