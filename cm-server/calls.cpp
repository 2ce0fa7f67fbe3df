#include "calls.h"

#include <utility>

#include "guard.h"
#include "log.h"

namespace quorvel::cm {
namespace {

Message about(wire::Event code, uint32_t call, int32_t profile, uint32_t status = NETCM_SUCCESS,
              Reason reason = Reason::kNone) {
    Message message = make_message(code, status);
    message.record.Word2 = static_cast<uint32_t>(profile);
    message.record.CallId = call;
    message.record.Word5 = static_cast<uint32_t>(reason);
    return message;
}

// Which interface or connection it is that comes up, or that no network of the configuration leads anywhere.
std::string way_of(const Network& network, const Profile& profile) {
    if (network.managed)
        return network.managed->connection.empty()
                   ? " by NetworkManager"
                   : " by NetworkManager's connection \"" + network.managed->connection + "\"";
    if (!network.interface.empty())
        return " over the interface " + network.interface;
    return std::string(", for which no network of the kind \"") +
           (profile.kind == NETCM_IFACE_PDP ? "pdp" : "wlan") + "\" leads to \"" + profile.access_point +
           "\"";
}

}  // namespace

const char* to_text(Call::State state) {
    switch (state) {
        case Call::State::kFree:
            return "free";
        case Call::State::kStarting:
            return "starting";
        case Call::State::kUp:
            return "up";
        case Call::State::kSuspended:
            return "suspended";
    }
    return "unknown";  // not reached: for the compiler
}

bool same_connection(const Profile& a, const Profile& b) {
    if (a.id == b.id)
        return true;
    return !a.access_point.empty() && a.kind == b.kind && a.access_point == b.access_point &&
           a.interface == b.interface;
}

std::optional<uint32_t> Calls::find(int32_t profile) const {
    for (uint32_t id = 0; id < kCallCount; ++id)
        if (calls_[id].users.holds(profile))
            return id;
    return std::nullopt;
}

uint32_t* Calls::packet_data_state(int32_t profile) {
    const auto call = find(profile);
    return call ? &calls_[*call].users.packet_data_state(profile) : nullptr;
}

void Calls::begin(uint32_t call, uint32_t client, const Profile& profile) {
    try {
        calls_[call].users.add(client, profile);
        calls_[call].state = Call::State::kStarting;
        const Network network = network_of(config_, profile);
        calls_[call].way = way_of(network, profile);
        bearer_->connect(call, network);
    } catch (...) {
        // Nobody would ever end it.
        bearer_->disconnect(call);
        calls_[call] = Call{};
        throw;
    }
}

std::vector<uint32_t> Calls::in_use() const {
    std::vector<uint32_t> ids;
    for (uint32_t id = 0; id < kCallCount; ++id)
        if (calls_[id].state != Call::State::kFree)
            ids.push_back(id);
    return ids;
}

std::optional<uint32_t> Calls::start(uint32_t client, const Profile& profile) {
    for (uint32_t id = 0; id < kCallCount; ++id) {
        Call& call = calls_[id];
        if (call.state == Call::State::kFree || !same_connection(call.users.first_profile(), profile))
            continue;
        call.users.add(client, profile);
        return id;
    }
    for (uint32_t id = 0; id < kCallCount; ++id) {
        if (calls_[id].state != Call::State::kFree)
            continue;
        begin(id, client, profile);
        return id;
    }
    return std::nullopt;
}

void Calls::respond_if_up(uint32_t id, uint32_t client, int32_t profile) {
    const Call& call = calls_.at(id);
    if (!call.connected())
        return;
    push_up(id, client, profile);
    if (call.state == Call::State::kSuspended)
        clients_.push(client, about(wire::NETCM_CLIENT_SUSPEND_IND, id, profile));
}

void Calls::push_up(uint32_t id, uint32_t client, int32_t profile) {
    Message message = about(wire::NETCM_CLIENT_START_RSP, id, profile);
    append(message.block, to_wire(calls_[id].addresses));
    clients_.push(client, std::move(message));
}

void Calls::tell_clients(uint32_t id, wire::Event code, uint32_t status, Reason reason) {
    calls_.at(id).users.each_client([&](uint32_t client, int32_t profile) {
        clients_.push(client, about(code, id, profile, status, reason));
    });
}

bool Calls::stop(uint32_t client, uint32_t id) {
    if (id >= kCallCount)
        return false;
    Call& call = calls_[id];
    if (!call.users.remove(client))
        return false;
    if (call.users.empty())
        release(id);
    return true;
}

void Calls::leave(uint32_t client) {
    for (uint32_t id = 0; id < kCallCount; ++id)
        stop(client, id);
}

bool Calls::kill(uint32_t client, int32_t profile) {
    const auto id = find(profile);
    if (id) {
        calls_[*id].users.remove(client);
        tell_clients(*id, wire::NETCM_CLIENT_STOP_IND, kStatusKilled);
        release(*id);
    }
    clients_.push(client, about(wire::NETCM_CLIENT_KILL_RSP, id.value_or(UINT32_MAX), profile,
                                id ? NETCM_SUCCESS : NETCM_ERR_NOT_ACTIVE));
    return id.has_value();
}

void Calls::release(uint32_t id) {
    bearer_->disconnect(id);
    if (calls_[id].connected())
        guarded("the counting of what a call has carried",
                [=, this] { statistics_.leave(calls_[id].addresses.interface); });
    calls_[id] = Call{};
    guarded("saying that a call has ended",
            [=] { log::info("call ", log::field("call", id), " has ended"); });
}

void Calls::suspend(uint32_t id, uint32_t status) {
    calls_.at(id).state = Call::State::kSuspended;
    log::info("call ", log::field("call", id), " is suspended");
    tell_clients(id, wire::NETCM_CLIENT_SUSPEND_IND, status);
}

void Calls::resume(uint32_t id, uint32_t status) {
    calls_.at(id).state = Call::State::kUp;
    log::info("call ", log::field("call", id), " runs again");
    tell_clients(id, wire::NETCM_CLIENT_RESUME_IND, status);
}

void Calls::change(uint32_t id, const Addresses& addresses) {
    Call& call = calls_.at(id);
    statistics_.leave(call.addresses.interface);
    call.addresses = addresses;
    statistics_.enter(addresses.interface);
    log::info("call ", log::field("call", id), " has the address ", to_text(addresses.address), " now");
    call.users.each([&](uint32_t client, int32_t profile) {
        Message message = about(wire::NETCM_CLIENT_IP_CHANGE_IND, id, profile);
        append(message.block, to_wire(addresses));
        clients_.push(client, std::move(message));
    });
}

void Calls::end(uint32_t id, uint32_t status, Reason reason) {
    log::info("call ", log::field("call", id), " is ended by the network: status ", status, ", ",
              to_text(reason));
    tell_clients(id, wire::NETCM_CLIENT_STOP_IND, status, reason);
    release(id);
}

void Calls::answer_kill(uint32_t id, uint32_t status, Reason reason) {
    tell_clients(id, wire::NETCM_CLIENT_KILL_RSP, status, reason);
    if (status == NETCM_SUCCESS)
        release(id);
}

// A client that waits for what it cannot be told would wait for ever: the end of its link tells it.
void Calls::give_up(uint32_t id) {
    CallUsers& users = calls_[id].users;
    while (!users.empty()) {
        const uint32_t user = users.first_client();
        if (Client* const client = clients_.find(user))
            client->sync->drop_soon("it cannot be told what has become of its call");
        users.remove(user);
    }
    if (calls_[id].state != Call::State::kFree)
        release(id);
}

template <class Action>
void Calls::or_give_up(uint32_t id, Action&& action) {
    if (!guarded("the telling of a call's clients", std::forward<Action>(action)))
        give_up(id);
}

void Calls::on_up(uint32_t id, const Addresses& addresses) {
    or_give_up(id, [&] {
        Call& call = calls_.at(id);
        call.addresses = addresses;
        statistics_.enter(addresses.interface);
        call.state = Call::State::kUp;
        log::info("call ", log::field("call", id), " is up on ", addresses.interface, " with the address ",
                  to_text(addresses.address));
        call.users.each([&](uint32_t client, int32_t profile) { push_up(id, client, profile); });
    });
}

// An operator may have suspended or resumed the call before the network does.
void Calls::on_suspended(uint32_t id) {
    if (calls_.at(id).state == Call::State::kUp)
        or_give_up(id, [=, this] { suspend(id); });
}

void Calls::on_resumed(uint32_t id) {
    if (calls_.at(id).state == Call::State::kSuspended)
        or_give_up(id, [=, this] { resume(id); });
}

void Calls::on_changed(uint32_t id, const Addresses& addresses) {
    or_give_up(id, [&] { change(id, addresses); });
}

void Calls::on_ended(uint32_t id, Reason reason) {
    or_give_up(id, [=, this] { end(id, kStatusTransport, reason); });
}

void Calls::on_refused(uint32_t id, Reason reason) {
    const Profile& first = calls_.at(id).users.first_profile();
    log::warning("call ", log::field("call", id), ", ", describe(first), calls_.at(id).way,
                 ", did not come up: ", to_text(reason));
    or_give_up(id, [=, this] {
        calls_.at(id).users.each([&](uint32_t client, int32_t profile) {
            clients_.push(client, about(wire::NETCM_CLIENT_START_RSP, id, profile, kStatusTransport, reason));
        });
        release(id);
    });
}

}  // namespace quorvel::cm
