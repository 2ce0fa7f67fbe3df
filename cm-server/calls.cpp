#include "calls.h"

#include <algorithm>
#include <utility>

#include "log.h"
#include "protocol/status.h"

namespace quorvel::cm {
namespace {

Message about(wire::Event code, uint32_t call, int32_t profile, uint32_t status = NETCM_SUCCESS) {
    Message message = make_message(code, status);
    message.record.Word2 = static_cast<uint32_t>(profile);
    message.record.CallId = call;
    return message;
}

bool holds(const Call& call, int32_t profile) {
    return std::ranges::any_of(call.profiles, [&](const Profile& held) { return held.id == profile; });
}

}  // namespace

bool same_connection(const Profile& a, const Profile& b) {
    if (a.id == b.id)
        return true;
    return !a.access_point.empty() && a.kind == b.kind && a.access_point == b.access_point &&
           a.interface == b.interface;
}

std::optional<uint32_t> Calls::find(int32_t profile) const {
    for (uint32_t id = 0; id < kCallCount; ++id)
        if (calls_[id].state != Call::State::kFree && holds(calls_[id], profile))
            return id;
    return std::nullopt;
}

uint32_t Calls::begin(uint32_t call, const Profile& profile) {
    calls_[call].state = Call::State::kStarting;
    bearer_->connect(call, profile);
    return call;
}

std::optional<uint32_t> Calls::start(uint32_t client, const Profile& profile) {
    std::optional<uint32_t> chosen;
    for (uint32_t id = 0; id < kCallCount && !chosen; ++id)
        if (calls_[id].state != Call::State::kFree && same_connection(calls_[id].profiles.front(), profile))
            chosen = id;
    for (uint32_t id = 0; id < kCallCount && !chosen; ++id)
        if (calls_[id].state == Call::State::kFree)
            chosen = begin(id, profile);
    if (!chosen)
        return std::nullopt;
    Call& call = calls_[*chosen];
    if (!holds(call, profile.id))
        call.profiles.push_back(profile);
    const Call::User user{client, profile.id};
    if (std::ranges::find(call.users, user) == call.users.end())
        call.users.push_back(user);
    return chosen;
}

void Calls::respond_if_up(uint32_t call, Call::User user) {
    if (calls_.at(call).state == Call::State::kUp)
        push_up(call, user);
}

void Calls::push_up(uint32_t call, Call::User user) {
    Message message = about(wire::NETCM_CLIENT_START_RSP, call, user.profile);
    append(message.block, to_wire(calls_[call].addresses));
    clients_.push(user.client, std::move(message));
}

bool Calls::stop(uint32_t client, uint32_t id) {
    if (id >= kCallCount)
        return false;
    const auto removed =
        std::erase_if(calls_[id].users, [&](const Call::User& user) { return user.client == client; });
    if (removed > 0)
        release_if_unused(id);
    return removed > 0;
}

void Calls::leave(uint32_t client) {
    for (uint32_t id = 0; id < kCallCount; ++id)
        stop(client, id);
}

void Calls::release_if_unused(uint32_t id) {
    if (!calls_[id].users.empty())
        return;
    log::info("call ", id, " has ended: nobody uses it any more");
    bearer_->disconnect(id);
    calls_[id] = Call{};
}

void Calls::on_up(uint32_t id, const Addresses& addresses) {
    Call& call = calls_.at(id);
    call.state = Call::State::kUp;
    call.addresses = addresses;
    log::info("call ", id, " is up on ", addresses.interface, " with the address ",
              to_text(addresses.address));
    for (const Call::User& user : call.users)
        push_up(id, user);
}

void Calls::on_refused(uint32_t id, Reason reason) {
    const Call ended = std::exchange(calls_.at(id), Call{});
    log::warning("call ", id, " did not come up: ", to_text(reason));
    for (const Call::User& user : ended.users) {
        Message message = about(wire::NETCM_CLIENT_START_RSP, id, user.profile, kStatusTransport);
        message.record.Word5 = static_cast<uint32_t>(reason);
        clients_.push(user.client, std::move(message));
    }
}

}  // namespace quorvel::cm
