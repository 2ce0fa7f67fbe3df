#include "networkmanager/networkmanager_bearer.h"

#include <algorithm>
#include <utility>

#include "guard.h"
#include "log.h"
#include "networkmanager/reasons.h"
#include "networkmanager/settings.h"

namespace quorvel::cm {
namespace {

// NetworkManager is on the bus before it has read its connections, and then they come one by one.
constexpr std::chrono::milliseconds kQuiet{300};

// How soon a message bus is tried again: one that starts anew is back in a moment, and one that does not
// come, or does not let the server in, shall not keep a device awake.
constexpr std::chrono::seconds kRejoinSoonest{1};
constexpr std::chrono::minutes kRejoinLatest{1};

// A modem or an access point may take its time; NetworkManager gives up by itself long before.
constexpr std::chrono::seconds kLimit{120};

std::string describe(const Network& network) {
    return network.managed->connection.empty()
               ? "NetworkManager's connection for the profile"
               : "NetworkManager's connection \"" + network.managed->connection + "\"";
}

}  // namespace

NetworkManagerBearer::NetworkManagerBearer(event_base* base, Interfaces& interfaces, RecordOf record_of,
                                           std::string notes, std::function<void()> network_changed,
                                           BearerEvents& events)
    : interfaces_(interfaces),
      record_of_(std::move(record_of)),
      events_(events),
      manager_(base, *this),
      network_changed_(std::move(network_changed)),
      devices_(manager_, interfaces, network_changed_),
      activations_(std::move(notes)),
      start_(base, [this] { start_next(); }),
      stock_(base, [this] { take_stock(); }),
      patience_(kRejoinSoonest),
      rejoin_(base, [this] { rejoin(); }) {
    for (uint32_t call = 0; call < kCallCount; ++call)
        limits_[call] = std::make_unique<Timer>(
            base, [this, call] { refuse(call, Reason::kTimeLimit, "it takes too long"); });
}

void NetworkManagerBearer::be_ready() {
    if (!rejoin())
        log::warning("NetworkManager's connections will be refused until then");
}

bool NetworkManagerBearer::rejoin() {
    try {
        manager_.be_connected();
        take_stock();
        return true;
    } catch (const BusError& error) {
        log::info("NetworkManager cannot be asked: ", error.what());
        rejoin_later();
        return false;
    }
}

void NetworkManagerBearer::rejoin_later() {
    log::info("the message bus is tried again in ", patience_.count(), " s");
    rejoin_.start(patience_);
    patience_ = std::min<std::chrono::seconds>(patience_ * 2, kRejoinLatest);
}

void NetworkManagerBearer::take_stock() {
    manager_.list_connections(
        [this](const std::vector<StoredConnection>& connections, const std::string& error) {
            if (!error.empty())
                return log::debug("NetworkManager's connections are not known: ", error);
            sweep(connections);
            devices_.take_in(connections);
        });
    devices_.list_devices();
}

void NetworkManagerBearer::sweep(const std::vector<StoredConnection>& connections) {
    for (const StoredConnection& connection : connections) {
        const auto is_used = [&](const Use& use) { return use.connection == connection.path; };
        if (!connection.made_by_us || std::ranges::any_of(uses_, is_used))
            continue;
        log::info("NetworkManager's ", connection.path,
                  " was left behind by a server before, and is deleted");
        manager_.remove(connection.path);
    }
}

template <class Step>
void NetworkManagerBearer::step(uint32_t call, Step&& step) {
    const auto fail = [=, this](Reason reason, const std::string& why) {
        if (uses_[call].state != State::kFree)
            end(call, reason, why);
    };
    const bool done = guarded("a connection by NetworkManager", [&] {
        try {
            step();
        } catch (const NotSupported& error) {
            fail(Reason::kRefused, error.what());
        } catch (const BusError& error) {
            fail(uses_[call].state == State::kWaiting ? Reason::kNoInterface : Reason::kLost, error.what());
        }
    });
    if (done || uses_[call].state == State::kFree)
        return;
    disconnect(call);
    events_.on_failed(call);
}

void NetworkManagerBearer::connect(uint32_t call, const Network& network) {
    Use use;
    use.state = State::kWaiting;
    use.life = ++last_life_;
    use.network = network;
    waiting_.push_back(call);
    uses_.at(call) = std::move(use);
    limits_[call]->start(kLimit);
    start_.start(std::chrono::milliseconds(0));
}

bool NetworkManagerBearer::shared(uint32_t call) const {
    for (uint32_t other = 0; other < kCallCount; ++other)
        if (other != call && uses_[other].active == uses_[call].active)
            return true;
    return false;
}

void NetworkManagerBearer::disconnect(uint32_t call) {
    const Use& use = uses_.at(call);
    if (use.state == State::kFree)
        return;
    guarded("the end of a connection by NetworkManager", [&] {
        if (!use.active.empty() && use.ours && !shared(call))
            manager_.deactivate(use.active);
        if (use.made)
            manager_.remove(use.connection);
    });
    forget(call);
}

void NetworkManagerBearer::forget(uint32_t call) {
    limits_[call]->stop();
    // It stays noted when NetworkManager cannot be told to take it down.
    if (uses_[call].ours && !shared(call) && manager_.in_reach())
        activations_.remove(uses_[call].active);
    uses_[call] = Use{};
    network_changed_();
    started(call);
}

void NetworkManagerBearer::refuse(uint32_t call, Reason reason, const std::string& why) {
    log::info("call ", log::field("call", call), ": ", describe(uses_[call].network),
              " does not come up: ", why);
    disconnect(call);
    events_.on_refused(call, reason);
}

void NetworkManagerBearer::end(uint32_t call, Reason reason, const std::string& why) {
    if (uses_[call].state == State::kWaiting)
        return refuse(call, reason, why);
    log::info("call ", log::field("call", call), ": ", describe(uses_[call].network), " has ended: ", why);
    if (uses_[call].made)
        guarded("the end of a connection by NetworkManager",
                [&] { manager_.remove(uses_[call].connection); });
    forget(call);
    events_.on_ended(call, reason);
}

// The device knows more than the connection on it.
void NetworkManagerBearer::end_with_reason(uint32_t call, const std::string& otherwise) {
    const Use& use = uses_[call];
    if (says_why(use.device_reason)) {
        const EndReason why = device_reason(use.device_reason);
        return end(call, why.reason, why.text);
    }
    const EndReason why = connection_reason(use.connection_reason);
    end(call, why.reason, use.connection_reason != 0 ? why.text : otherwise);
}

void NetworkManagerBearer::start_next() {
    if (waiting_.empty() || uses_[waiting_.front()].life == starting_)
        return;
    const uint32_t call = waiting_.front();
    starting_ = uses_[call].life;
    step(call, [=, this] {
        manager_.be_connected();
        uses_[call].network.managed->connection.empty() ? make(call) : find(call);
    });
}

void NetworkManagerBearer::started(uint32_t call) {
    if (std::erase(waiting_, call) > 0)
        start_.start(std::chrono::milliseconds(0));
}

void NetworkManagerBearer::find(uint32_t call) {
    const uint64_t life = uses_[call].life;
    manager_.find(uses_[call].network.managed->connection,
                  [=, this](const std::string& connection, const std::string& error) {
                      if (lives(call, life))
                          step(call, [&] {
                              if (!error.empty())
                                  return refuse(call, Reason::kNoInterface, error);
                              uses_[call].connection = connection;
                              activate(call);
                          });
                  });
}

void NetworkManagerBearer::make(uint32_t call) {
    const uint64_t life = uses_[call].life;
    const Network& network = uses_[call].network;
    manager_.add(record_of_(network.profile), network,
                 [=, this](const std::string& connection, const std::string& error) {
                     // Nobody waits for it any more.
                     if (!lives(call, life)) {
                         if (error.empty())
                             manager_.remove(connection);
                         return;
                     }
                     step(call, [&] {
                         if (!error.empty())
                             return refuse(call, Reason::kRefused, error);
                         uses_[call].connection = connection;
                         uses_[call].made = true;
                         bring_up(call, "");
                     });
                 });
}

// One that is active already is joined.
void NetworkManagerBearer::activate(uint32_t call) {
    const uint64_t life = uses_[call].life;
    const auto use_device = [=, this](const std::string& device, const std::string& error) {
        if (lives(call, life))
            step(call,
                 [&] { error.empty() ? bring_up(call, device) : refuse(call, Reason::kNoInterface, error); });
    };
    const auto join = [=, this](const std::string& active, const std::string& error) {
        if (!lives(call, life))
            return;
        step(call, [&] {
            if (!error.empty())
                return refuse(call, Reason::kRefused, error);
            if (!active.empty())
                return activated(call, active, false);
            const std::string& interface = uses_[call].network.interface;
            interface.empty() ? bring_up(call, "") : manager_.find_device(interface, use_device);
        });
    };
    manager_.find_active(uses_[call].connection, join);
}

void NetworkManagerBearer::bring_up(uint32_t call, const std::string& device) {
    const uint64_t life = uses_[call].life;
    manager_.activate(
        uses_[call].connection, device, [=, this](const std::string& active, const std::string& error) {
            // Nobody waits for it any more.
            if (!lives(call, life)) {
                if (error.empty())
                    manager_.deactivate(active);
                return;
            }
            step(call, [&] {
                error.empty() ? activated(call, active, true) : refuse(call, Reason::kRefused, error);
            });
        });
}

void NetworkManagerBearer::activated(uint32_t call, const std::string& active, bool ours) {
    Use& use = uses_[call];
    use.active = active;
    // What another call of ours has activated is ours as well, and what a server before has.
    use.ours = ours || activations_.has(active) || std::ranges::any_of(uses_, [&](const Use& other) {
                   return &other != &use && other.ours && other.active == active;
               });
    // What was made is found by its mark, and deleted.
    if (ours && !use.made)
        activations_.add(active);
    started(call);
    look(call);
}

// One look at a time, however many changes are told.
void NetworkManagerBearer::look(uint32_t call) {
    Use& use = uses_[call];
    use.look_again = use.looking;
    if (use.looking)
        return;
    use.looking = true;
    const uint64_t life = use.life;
    manager_.look(use.active, [=, this](const ActiveState& state, const std::string& error) {
        if (!lives(call, life))
            return;
        step(call, [&] {
            uses_[call].looking = false;
            if (!error.empty())
                return end_with_reason(call, error);
            const bool again = uses_[call].look_again;
            take_in(call, state);
            if (again && lives(call, life))
                look(call);
        });
    });
}

void NetworkManagerBearer::take_in(uint32_t call, const ActiveState& state) {
    Use& use = uses_[call];
    // Once it is over, it has no device any more.
    if (!state.device.path.empty())
        use.device = state.device.path;
    use.addressing = state.connection.addressing;
    use.modem = state.device.modem;
    if (state.connection.state > kActivated)
        return end_with_reason(call, "NetworkManager gives no reason");
    use.device_up = state.connection.state == kActivated && state.device.state == kDeviceActivated;
    const std::string interface = interface_of(state);
    if (!use.device_up || state.addresses.empty() || interface.empty())
        return follow_link(call);
    const Addresses addresses{interface, state.addresses.front(),
                              !use.network.dns.empty() ? use.network.dns
                              : !state.dns.empty()     ? state.dns
                                                       : system_name_servers()};
    if (use.state == State::kWaiting) {
        limits_[call]->stop();
        use.state = State::kUp;
        use.addresses = addresses;
        network_changed_();
        return events_.on_up(call, addresses);
    }
    const bool same = use.addresses.interface == addresses.interface &&
                      std::ranges::any_of(state.addresses, [&](in_addr address) {
                          return address.s_addr == use.addresses.address.s_addr;
                      });
    if (!same) {
        use.addresses = addresses;
        events_.on_changed(call, addresses);
    }
    follow_link(call);
}

// The device of a classic VPN is the one below it. What has its address, a tunnel or that device itself, only
// the kernel knows; empty as long as nothing has.
std::string NetworkManagerBearer::interface_of(const ActiveState& state) const {
    if (!state.connection.vpn)
        return state.device.ip_interface();
    const InterfaceState* carrier =
        state.addresses.empty() ? nullptr : interfaces_.find_with(state.addresses.front());
    return carrier != nullptr ? carrier->name : "";
}

void NetworkManagerBearer::follow_link(uint32_t call) {
    Use& use = uses_[call];
    if (use.state != State::kUp && use.state != State::kSuspended)
        return;
    // One that is being removed goes down first, which is no news: NetworkManager tells of its end, and why.
    const InterfaceState* link = interfaces_.look_at(use.addresses.interface);
    if (link == nullptr)
        return;
    const bool runs = use.device_up && use.registered && link->running;
    if (runs == (use.state == State::kUp))
        return;
    use.state = runs ? State::kUp : State::kSuspended;
    network_changed_();
    runs ? events_.on_resumed(call) : events_.on_suspended(call);
}

void NetworkManagerBearer::look_again() {
    for (uint32_t call = 0; call < kCallCount; ++call)
        step(call, [=, this] {
            // What waits for its interface to have the address is through with everything else.
            uses_[call].state == State::kWaiting&& uses_[call].device_up ? look(call) : follow_link(call);
        });
}

// A call knows of a connection that no device has, such as a tunnel.
NetworkStatus NetworkManagerBearer::status(const Network& network) const {
    const auto is_up = [&](const Use& use) {
        return use.state == State::kUp && use.network.managed->connection == network.managed->connection &&
               use.network.kind == network.kind;
    };
    return std::ranges::any_of(uses_, is_up) ? NetworkStatus::kReady : devices_.status(network);
}

void NetworkManagerBearer::finish() {
    for (uint32_t call = 0; call < kCallCount; ++call)
        disconnect(call);
    guarded("the end of connections by NetworkManager", [&] { manager_.flush(); });
}

void NetworkManagerBearer::on_changed(const std::string& path) {
    devices_.look_at(path);
    for (uint32_t call = 0; call < kCallCount; ++call) {
        const Use& use = uses_[call];
        if (!use.active.empty() && (path == use.active || path == use.device || path == use.addressing))
            step(call, [=, this] { look(call); });
    }
}

void NetworkManagerBearer::on_connection_reason(const std::string& path, uint32_t, uint32_t reason) {
    constexpr uint32_t kNone = 1;
    for (Use& use : uses_)
        if (!use.active.empty() && use.active == path && reason > kNone)
            use.connection_reason = reason;
    on_changed(path);
}

// A device that is being disconnected gives its reason with the first step, and none with the last. One that
// fails at once does so before it is known which one it is: then it is the one that is coming up.
void NetworkManagerBearer::on_device_reason(const std::string& path, uint32_t state, uint32_t reason) {
    for (Use& use : uses_) {
        const bool is_its = use.device.empty() ? use.state == State::kWaiting &&
                                                     (use.life == starting_ || !use.active.empty())
                                               : use.device == path;
        if (is_its && (says_why(reason) || state == kDeviceActivated))
            use.device_reason = reason;
    }
    on_changed(path);
}

void NetworkManagerBearer::on_modem(const std::string& path, bool registered) {
    devices_.on_modem(path, registered);
    for (uint32_t call = 0; call < kCallCount; ++call)
        if (uses_[call].state != State::kFree && uses_[call].modem == path) {
            uses_[call].registered = registered;
            step(call, [=, this] { follow_link(call); });
        }
}

void NetworkManagerBearer::on_other_objects() {
    stock_.start(kQuiet);
}

void NetworkManagerBearer::on_manager_known(const std::string& name) {
    patience_ = kRejoinSoonest;
    for (const std::string& active : activations_.begin(name)) {
        bool used = false;
        for (Use& use : uses_)
            if (use.active == active)
                used = use.ours = true;
        if (used)
            continue;
        log::info("NetworkManager's ", active, " was activated by a server before, and is taken down");
        manager_.deactivate(active);
        activations_.remove(active);
    }
}

void NetworkManagerBearer::on_manager_gone() {
    if (!manager_.in_reach())
        rejoin_later();
    activations_.end();
    devices_.clear();
    for (uint32_t call = 0; call < kCallCount; ++call)
        if (uses_[call].state != State::kFree) {
            // There is nothing left to deactivate or to delete.
            uses_[call].active.clear();
            uses_[call].made = false;
            step(call, [=, this] { end(call, Reason::kLost, "NetworkManager has gone"); });
        }
}

}  // namespace quorvel::cm
