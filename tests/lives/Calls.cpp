#include "Calls.h"

#include "support/ScriptedServer.h"

namespace quorvel::lives {
namespace {

// Statuses that mean nothing to the library.
constexpr uint32_t kStale = 9;
constexpr uint32_t kOdd = 40;
// Connections with one id of which the client has not heard the last word, when it is given away again.
constexpr int kMostWithOneId = 1;
// Of the tickets for reasons.
constexpr uint32_t kReason = 0x1000;

}  // namespace

// ---- Looking around. What has ended at an earlier link is not live.

template <class Body>
void Calls::for_each_live(Body body) {
    // An index, since the bodies may add connections.
    const auto& all = model_.truth().connections();
    for (size_t index = 0; index < all.size(); ++index)
        if (all[index].live() && all[index].link == model_.truth().link())
            body(all[index]);
}

const Connection* Calls::find_live(int32_t profile) const {
    for (const Connection& connection : model_.truth().connections())
        if (connection.live() && connection.link == model_.truth().link() && connection.holds(profile))
            return &connection;
    return nullptr;
}

const Connection* Calls::sharable(int32_t profile) const {
    for (int32_t other = model_.first_sharing(profile); other <= model_.last_sharing(profile); ++other)
        if (const Connection* connection = find_live(other))
            return connection;
    return nullptr;
}

// An end that nobody has asked for, and an answer to a stop that came too late, have to be said before the id
// is another's, and so has everything about a profile that the next connection is for: nobody could tell
// afterwards which of the two is meant.
bool Calls::has_to_say_first(const Connection& ended, int32_t profile) const {
    return outbox_.has([&](const Pushed& pushed) {
        if (pushed.serial != ended.serial || pushed.what == Word::Kill)
            return false;
        if (pushed.what == Word::Stop)
            return pushed.status == kStale;
        return pushed.what == Word::End || pushed.what == Word::Refusal || pushed.profile == profile;
    });
}

bool Calls::is_free(uint32_t id, int32_t profile) const {
    int unfinished = 0;
    for (const Connection& connection : model_.truth().connections()) {
        if (connection.link != model_.truth().link() || connection.id != id)
            continue;
        if (connection.live() || (!model_.has(kReuse) && !model_.is_finished(connection.serial)) ||
            has_to_say_first(connection, profile))
            return false;
        unfinished += model_.is_finished(connection.serial) ? 0 : 1;
    }
    return unfinished <= kMostWithOneId;
}

std::optional<uint32_t> Calls::free_id(int32_t profile) {
    std::vector<uint32_t> free;
    for (uint32_t id = 0; id < kCallIds; ++id)
        if (is_free(id, profile))
            free.push_back(id);
    if (free.empty())
        return std::nullopt;
    return free[random_.one_in(3) ? static_cast<size_t>(random_.below(static_cast<int>(free.size()))) : 0];
}

unsigned Calls::keys_of(const Connection& connection) const {
    unsigned keys = key_of_id(connection.id);
    for (int32_t profile = 1; profile <= kProfiles; ++profile)
        if (connection.holds(profile))
            keys |= key_of_profile(profile);
    return keys;
}

std::vector<int32_t> Calls::active() const {
    std::vector<int32_t> profiles;
    for (int32_t profile = 1; profile <= kProfiles; ++profile)
        if (find_live(profile) != nullptr)
            profiles.push_back(profile);
    return profiles;
}

bool Calls::is_anything_starting() const {
    for (const auto& [serial, profiles] : awaited_)
        if (model_.truth().find(serial)->live())
            return true;
    return false;
}

// ---- Requests

wire::Record Calls::start(int32_t profile) {
    wire::Record answer = test::answer_record(wire::NETCM_CLIENT_START_REQ);
    answer.Word2 = static_cast<uint32_t>(profile);
    const Asked asked{wire::NETCM_CLIENT_START_REQ, static_cast<uint32_t>(profile), true};
    const Connection* present = sharable(profile);
    const auto id = present != nullptr ? std::optional(present->id) : free_id(profile);
    const bool refuses = model_.has(kRefusals) && random_.one_in(12);
    if (refuses && random_.one_in(2)) {
        answer.Status = kStatusWithReason;
        answer.Word5 = model_.gives_ticket({wire::NETCM_CLIENT_START_REQ, kReason});
        model_.refuses_start(profile, static_cast<int32_t>(answer.Word5));
        return answer;
    }
    if (refuses || !id) {
        answer.Status = model_.gives_ticket(asked);
        answer.Word5 = 7;
        return answer;
    }
    const Connection& connection = model_.starts(profile, present != nullptr ? present->serial : 0, *id);
    awaited_[connection.serial][static_cast<size_t>(profile)] = true;
    answer.CallId = connection.id;
    return answer;
}

void Calls::stop(uint32_t id, int32_t profile) {
    const Connection* connection = find_live(profile);
    if (connection != nullptr && connection->id == id) {
        Pushed pushed{.what = Word::Stop, .profile = profile};
        if (model_.has(kRefusals) && random_.one_in(8))
            pushed = refused_somehow(Word::Stop, profile);
        is_ended(*connection, "is stopped");
        end(*connection, pushed);
        return;
    }
    // The network has been faster.
    int serial = 0;
    for (const Connection& ended : model_.truth().connections())
        if (ended.link == model_.truth().link() && ended.id == id && ended.holds(profile))
            serial = ended.serial;
    if (serial != 0)
        model_.has_end_to_push(serial);
    const wire::Record record = test::stop_response(static_cast<int32_t>(id), profile, kStale);
    outbox_.put({{.what = Word::Stop, .serial = serial, .profile = profile, .status = kStale},
                 test::bytes_of(record),
                 key_of_id(id) | key_of_profile(profile)});
    if (!model_.has(kReuse))
        push_broadcast();
}

void Calls::kill(int32_t profile) {
    const Connection* connection = find_live(profile);
    if (connection == nullptr) {
        Pushed pushed{.what = Word::Kill, .profile = profile, .status = kStale};
        if (random_.one_in(4))
            pushed = refused_somehow(Word::Kill, profile);
        wire::Record record = test::kill_response(profile, pushed.status, pushed.reason);
        record.CallId = UINT32_MAX;
        outbox_.put({pushed, test::bytes_of(record), key_of_profile(profile)});
        return;
    }
    model_.is_killed(connection->serial);
    // Where the client may have no use of this profile any more, it would not find the call by the response.
    if (!model_.is_certainly_held(profile, connection->serial) || random_.one_in(4)) {
        model_.has_end_to_push(connection->serial);
        push_about(*connection, wire::NETCM_CLIENT_STOP_IND,
                   {.what = Word::End, .profile = connection->first, .status = kStatusKilled});
    }
    is_ended(*connection, "is killed");
    end(*connection, {.what = Word::Kill, .profile = profile});
}

// ---- Pushing

void Calls::push_about(const Connection& connection, uint32_t code, Pushed pushed) {
    pushed.serial = connection.serial;
    const wire::Record record = test::indication(code, static_cast<int32_t>(connection.id), pushed.profile,
                                                 pushed.status, pushed.reason);
    test::Bytes bytes = test::bytes_of(record);
    if (pushed.what == Word::Start || pushed.what == Word::Change) {
        const test::Bytes block = test::bytes_of(block_of({connection.serial, connection.change}));
        bytes.insert(bytes.end(), block.begin(), block.end());
        pushed.change = connection.change;
    }
    outbox_.put({pushed, std::move(bytes), keys_of(connection)});
}

// The last word about a connection, whose id is free from now on.
void Calls::end(const Connection& connection, Pushed pushed) {
    uint32_t code = wire::NETCM_CLIENT_STOP_IND;
    if (pushed.what == Word::Refusal)
        code = wire::NETCM_CLIENT_START_RSP;
    else if (pushed.what == Word::Stop)
        code = wire::NETCM_CLIENT_STOP_RSP;
    else if (pushed.what == Word::Kill)
        code = wire::NETCM_CLIENT_KILL_RSP;
    model_.has_end_to_push(connection.serial);
    push_about(connection, code, pushed);
    // Whoever hears this shows that the end has been handled: without it, ids are not free again.
    if (!model_.has(kReuse) || random_.one_in(3))
        push_broadcast();
}

void Calls::is_ended(const Connection& connection, const char* why) {
    model_.changes(connection.serial, Connection::State::Ended, why);
    awaited_.erase(connection.serial);
}

Pushed Calls::refused_somehow(Word what, int32_t profile) {
    Pushed pushed{.what = what, .profile = profile, .status = kOdd + static_cast<uint32_t>(random_.below(9))};
    if (random_.one_in(2)) {
        pushed.status = kStatusWithReason;
        pushed.reason = model_.gives_ticket({wire::NETCM_CLIENT_STOP_IND, kReason});
    }
    return pushed;
}

void Calls::push_broadcast() {
    const uint32_t number = model_.next_broadcast();
    Pushed pushed{.what = Word::Broadcast, .number = number};
    if (random_.one_in(3)) {
        pushed.tunnel = true;
        const std::string data = tunnel_bytes(number);
        wire::Record record = test::indication(wire::NETCM_CLIENT_TUNNEL_IND, static_cast<int32_t>(number),
                                               static_cast<int32_t>(data.size()));
        test::Bytes bytes = test::bytes_of(record);
        const auto* first = reinterpret_cast<const std::byte*>(data.data());
        bytes.insert(bytes.end(), first, first + data.size());
        outbox_.put({pushed, std::move(bytes), 0});
        return;
    }
    const wire::Record record = test::indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND,
                                                 static_cast<int32_t>(~number), static_cast<int32_t>(number));
    outbox_.put({pushed, test::bytes_of(record), 0});
}

// ---- Time goes by

void Calls::push_up(const Connection& connection) {
    const auto awaited = awaited_.find(connection.serial);
    if (awaited == awaited_.end())
        return;
    for (int32_t profile = 1; profile <= kProfiles; ++profile)
        if (awaited->second[static_cast<size_t>(profile)])
            push_about(connection, wire::NETCM_CLIENT_START_RSP, {.what = Word::Start, .profile = profile});
    awaited_.erase(awaited);
    if (connection.state == Connection::State::Suspended)
        push_about(connection, wire::NETCM_CLIENT_SUSPEND_IND,
                   {.what = Word::Suspend, .profile = connection.first});
}

void Calls::come_up(const Connection& connection) {
    model_.changes(connection.serial, Connection::State::Up, "is up");
    push_up(connection);
}

// Of a call that is shared, a refusal would end the other profile's use without a word.
void Calls::refuse(const Connection& connection) {
    const Pushed pushed = refused_somehow(Word::Refusal, connection.first);
    is_ended(connection, "is refused by the network");
    end(connection, pushed);
}

void Calls::suspend_or_resume(const Connection& connection) {
    const bool suspends = connection.state == Connection::State::Up;
    model_.changes(connection.serial, suspends ? Connection::State::Suspended : Connection::State::Up,
                   suspends ? "is suspended" : "runs again");
    push_about(connection, suspends ? wire::NETCM_CLIENT_SUSPEND_IND : wire::NETCM_CLIENT_RESUME_IND,
               {.what = suspends ? Word::Suspend : Word::Resume,
                .profile = connection.first,
                .status = random_.one_in(3) ? kStatusWithReason : 0});
}

void Calls::change_address(const Connection& connection) {
    model_.changes_address(connection.serial);
    for (int32_t profile = 1; profile <= kProfiles; ++profile)
        if (connection.holds(profile))
            push_about(connection, wire::NETCM_CLIENT_IP_CHANGE_IND,
                       {.what = Word::Change, .profile = profile});
}

// What no call and no thread is concerned with.
void Calls::push_noise() {
    wire::Record record{};
    record.Code = 150 + static_cast<uint32_t>(random_.below(50));
    if (random_.one_in(2)) {
        record.Code = wire::NETCM_CLIENT_PROPER_PROFILE_RSP;
        record.Word5 = 999999;
    }
    outbox_.put({{.what = Word::Noise}, test::bytes_of(record), 0});
}

void Calls::let_the_network_act(const Connection& connection) {
    const int what = random_.below(60);
    if (what < 3 && model_.has(kSuspensions))
        return suspend_or_resume(connection);
    if (!model_.has(kNetwork))
        return;
    if (what == 3 || what == 4)
        change_address(connection);
    if (what == 5 || what == 6) {
        const Pushed pushed = refused_somehow(Word::End, connection.first);
        is_ended(connection, "is ended by the network");
        end(connection, pushed);
    }
    if (what == 7)
        push_broadcast();
    if (what == 8)
        push_noise();
}

void Calls::tick(bool to_rest, bool network_may_act) {
    for_each_live([&](const Connection& connection) {
        if (connection.state != Connection::State::Starting)
            return push_up(connection);
        if (!to_rest && !random_.one_in(3))
            return;
        int profiles = 0;
        for (const int starts : connection.starts)
            profiles += starts > 0 ? 1 : 0;
        if (!to_rest && model_.has(kRefusals) && profiles == 1 && random_.one_in(10))
            refuse(connection);
        else
            come_up(connection);
    });
    if (to_rest || !network_may_act)
        return;
    for_each_live([&](const Connection& connection) {
        if (connection.state != Connection::State::Starting)
            let_the_network_act(connection);
    });
}

}  // namespace quorvel::lives
