#include "bearer/link_bearer.h"

#include <algorithm>

#include "guard.h"

namespace quorvel::cm {
namespace {

// What keeps the interface from carrying a connection.
Reason obstacle(const InterfaceState* state) {
    if (state == nullptr)
        return Reason::kNoInterface;
    if (!state->running)
        return Reason::kInterfaceDown;
    return state->addresses.empty() ? Reason::kNoAddress : Reason::kNone;
}

Addresses addresses_on(const InterfaceState& state, const Network& network) {
    return {network.interface, state.addresses.front(), network.dns};
}

constexpr std::chrono::milliseconds kNextLook{100};

bool has(const InterfaceState& state, in_addr address) {
    return std::ranges::any_of(state.addresses,
                               [&](in_addr other) { return other.s_addr == address.s_addr; });
}

}  // namespace

LinkBearer::LinkBearer(event_base* base, std::chrono::milliseconds limit, Interfaces& interfaces,
                       BearerEvents& events)
    : limit_(limit), interfaces_(interfaces), events_(events) {
    for (uint32_t call = 0; call < kCallCount; ++call) {
        looks_[call] = std::make_unique<Timer>(base, [this, call] { look(call, false); });
        limits_[call] = std::make_unique<Timer>(base, [this, call] { look(call, true); });
    }
}

void LinkBearer::connect(uint32_t call, const Network& network) {
    links_.at(call) = {State::kWaiting, network, {}};
    looks_[call]->start(std::chrono::milliseconds(0));
    limits_[call]->start(limit_);
}

void LinkBearer::disconnect(uint32_t call) {
    links_.at(call) = Link{};
    looks_[call]->stop();
    limits_[call]->stop();
}

void LinkBearer::look_again() {
    for (uint32_t call = 0; call < kCallCount; ++call)
        look(call, false);
}

// The kernel tells its news once: what could not be looked at is looked at again.
void LinkBearer::look(uint32_t call, bool last_time) {
    const bool done = guarded("the look at a call's interface", [=, this] {
        if (links_[call].state == State::kWaiting)
            wait(call, last_time);
        else if (links_[call].state != State::kFree)
            follow(call);
    });
    if (done)
        return;
    if (last_time || !guarded("another look", [=, this] { looks_[call]->start(kNextLook); }))
        events_.on_failed(call);
}

void LinkBearer::wait(uint32_t call, bool last_time) {
    Link& link = links_[call];
    const InterfaceState* interface = interfaces_.look_at(link.network.interface);
    const Reason reason = obstacle(interface);
    if (reason != Reason::kNone) {
        if (last_time)
            events_.on_refused(call, reason);
        return;
    }
    const Addresses addresses = addresses_on(*interface, link.network);
    // The kernel may have brought the news before the first look.
    looks_[call]->stop();
    limits_[call]->stop();
    link.state = State::kUp;
    link.address = addresses.address;
    events_.on_up(call, addresses);
}

void LinkBearer::follow(uint32_t call) {
    Link& link = links_[call];
    // An interface that is being removed goes down first, which is no news that anybody needs: the kernel
    // answers when it is through.
    const InterfaceState* interface = interfaces_.look_at(link.network.interface);
    if (interface == nullptr)
        return events_.on_ended(call, Reason::kNoInterface);
    if (interface->running != (link.state == State::kUp)) {
        link.state = interface->running ? State::kUp : State::kSuspended;
        interface->running ? events_.on_resumed(call) : events_.on_suspended(call);
    }
    // An address that is only gone may be on its way back.
    if (interface->addresses.empty() || has(*interface, link.address))
        return;
    const Addresses addresses = addresses_on(*interface, link.network);
    link.address = addresses.address;
    events_.on_changed(call, addresses);
}

}  // namespace quorvel::cm
