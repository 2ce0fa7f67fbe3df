#include "Run.h"

#include <algorithm>

#include "client/CM/src/NetCMPrivate.h"
#include "support/Events.h"
#include "support/Eventually.h"
#include "support/Link.h"

namespace quorvel::sweep {

using test::Answer;
using test::Bytes;
using test::Event;
namespace events = test::events;

namespace {

constexpr uint32_t kStopWithTheServer = 2;

Bytes with_block(const wire::Record& record, const wire::ConnectionBlock& block) {
    Bytes bytes = test::bytes_of(record);
    const Bytes more = test::bytes_of(block);
    bytes.insert(bytes.end(), more.begin(), more.end());
    return bytes;
}

// Of a server on which every profile has a call of its own, which comes up at once.
Answer start(const test::Request& request) {
    const auto profile = static_cast<int32_t>(request.header.Arg4);
    wire::ConnectionBlock block = test::connection_block();
    strcpy(block.IfaceName, "lo");
    block.DnsAddr[0] = test::ipv4(127, 0, 0, 1);
    block.DnsAddr[1] = test::ipv4(127, 0, 0, 2);
    wire::Record record = test::answer_record(wire::NETCM_CLIENT_START_REQ);
    record.CallId = static_cast<uint32_t>(profile - 1);
    return Answer()
        .record(record)
        .push(with_block(test::start_response(profile - 1, profile), block))
        .push(test::indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0));
}

size_t count(int user, uint32_t type, int32_t profile) {
    const std::vector<Event> all = events::of(user);
    return static_cast<size_t>(std::ranges::count_if(
        all, [=](const Event& event) { return event.type == type && event.profile == profile; }));
}

}  // namespace

Run::Run(Hurt hurt) : hurt_(hurt) {
    events::clear();
    be_good();
}

void Run::be_good() {
    server.forget_scripts();
    server.on(wire::NETCM_CLIENT_START_REQ, start);
}

void Run::end() {
    server.stop();
    for (const int user : {2, 1, 0})
        end_of_user(user);
}

bool Run::expect(bool holds, const std::string& what) {
    if (!holds)
        objections_ += what + "; ";
    return holds;
}

bool Run::result(const std::string& what, uint32_t got, std::initializer_list<uint32_t> stated) {
    if (is_hurt())
        expect(std::ranges::find(stated, got) != stated.end(), what + " gives " + std::to_string(got));
    else
        expect(got == *stated.begin(), what + " gives " + std::to_string(got) + " without a failure");
    return got == *stated.begin();
}

void Run::settle() {
    test::eventually([this] {
        return test::link_is_broken() || server.wait_for_async_socket(std::chrono::milliseconds(0));
    });
}

bool Run::enter(int user) {
    const uint32_t got = as(user, [=] { return NetCMClientRegister(events::callback_of(user)); });
    return result("register", got, {NETCM_SUCCESS, NETCM_ERR_REREGISTER_RETRY_EXHAUSTED});
}

bool Run::enter_or_be_refused() {
    if (enter())
        return true;
    uint32_t status = 0;
    const uint32_t refused = NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status);
    expect(refused == NETCM_ERR_NOT_REGISTERED,
           "behind a failed registration a query gives " + std::to_string(refused));
    expect(NetCMClientDeRegister() == NETCM_ERR_NOT_REGISTERED, "a failed registration can be given up");
    return false;
}

void Run::leave(int user) {
    const uint32_t got = as(user, [] { return NetCMClientDeRegister(); });
    result("deregister", got, {NETCM_SUCCESS, NETCM_ERR_ALREADY_EXISTS});
}

bool Run::is_lost(int user, int32_t profile) {
    const std::vector<Event> all = events::of(user);
    return std::ranges::any_of(all, [=](const Event& event) {
        return event.type == NETCM_EVENT_STOP_IND && event.profile == profile &&
               event.result == kStopWithTheServer;
    });
}

size_t Run::markers(int user) {
    return count(user, NETCM_EVENT_NETWORK_STATUS_IND, -1);
}

Run::Told Run::wait_until_told(int user, uint32_t type, int32_t profile) {
    const bool may_be_unread = hurt_ == Hurt::AlsoBlocks && type == NETCM_EVENT_OPEN_RSP;
    test::eventually([=, this] {
        return count(user, type, profile) != 0 || is_lost(user, profile) ||
               (may_be_unread && markers(user) > markers_seen_);
    });
    const bool unread = may_be_unread && markers(user) > markers_seen_;
    markers_seen_ = markers(user);
    if (count(user, type, profile) != 0)
        return Told::Outcome;
    if (unread && !is_lost(user, profile))
        return Told::Unread;
    const bool lost = is_lost(user, profile);
    expect(lost, "user " + std::to_string(user) + " is never told " + std::to_string(type));
    expect(is_hurt() || !lost, "the link is lost without a failure");
    return lost ? Told::Lost : Told::Nothing;
}

bool Run::open(int32_t profile, int user) {
    markers_seen_ = markers(user);
    const uint32_t got = as(user, [=] { return NetCMConnectionOpen(&profile, 1); });
    if (!result("open", got))
        return false;
    const Told told = wait_until_told(user, NETCM_EVENT_OPEN_RSP, profile);
    if (told == Told::Unread)
        close(profile, user);
    if (told != Told::Outcome)
        return false;
    for (const Event& event : events::of(user)) {
        if (event.type != NETCM_EVENT_OPEN_RSP || event.profile != profile)
            continue;
        expect(event.result == 0 && event.details.has_value(),
               "the outcome of an open is " + std::to_string(event.result));
    }
    return !is_lost(user, profile);
}

bool Run::close(int32_t profile, int user) {
    const uint32_t got = as(user, [=] { return NetCMConnectionClose(profile); });
    // The link's end takes all connections at once, and tells of them one after another.
    if (got == NETCM_ERR_NOT_ACTIVE && is_hurt() && test::eventually([&] { return is_lost(user, profile); }))
        return false;
    return result("close", got) && wait_until_told(user, NETCM_EVENT_CLOSE_RSP, profile) != Told::Nothing;
}

bool Run::kill(int32_t profile, int user) {
    const uint32_t got = as(user, [=] { return NetCMConnectionKill(profile); });
    if (!result("kill", got))
        return false;
    // With the link a kill that waits is forgotten, and the killer has given its own use up.
    const auto is_told = [=] { return count(user, NETCM_EVENT_KILL_RSP, profile) != 0; };
    test::eventually([&] { return is_told() || (is_hurt() && test::link_is_broken()); });
    return expect(is_told() || (is_hurt() && test::link_is_broken()),
                  "the outcome of a kill is never told") &&
           is_told();
}

void Run::end_of_user(int user) {
    const auto is_out = [=] {
        const uint32_t result = NetCMClientDeRegister();
        return result == NETCM_SUCCESS || result == NETCM_ERR_NOT_REGISTERED;
    };
    const bool out = as(user, [=] { return test::eventually(is_out, std::chrono::seconds(5)); });
    expect(out, "user " + std::to_string(user) + " cannot deregister when the server has gone");
}

}  // namespace quorvel::sweep
