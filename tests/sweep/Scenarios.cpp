// What an application does with the connection manager and with the profile manager.
#include <atomic>
#include <cstring>

#include "Run.h"
#include "library/pm/app_operations.h"
#include "library/pm/store_operations.h"
#include "library/queries/queries.h"
#include "support/Events.h"
#include "support/Eventually.h"
#include "support/Link.h"

namespace quorvel::sweep {

const std::vector<Scenario>& name_scenarios();

namespace {

using test::Answer;
using test::Bytes;
using test::operator+;
namespace events = test::events;

// ---- Registration

void registers(Run& run) {
    if (run.enter_or_be_refused())
        run.leave();
}

void register_three(Run& run) {
    for (const int user : {0, 1, 2})
        if (!run.enter(user))
            return;
    for (const int user : {2, 0, 1})
        run.leave(user);
}

// ---- Connections

void opens_and_closes(Run& run) {
    if (!run.enter())
        return;
    if (run.open(1))
        run.close(1);
    if (!run.is_hurt())
        run.leave();
}

void opens_the_default_profile(Run& run) {
    if (!run.enter())
        return;
    const int32_t profile = 0;
    if (run.result("open", NetCMConnectionOpen(&profile, 1)) &&
        run.wait_until_told(0, NETCM_EVENT_OPEN_RSP, 1) == Run::Told::Outcome)
        run.close(1);
    if (!run.is_hurt())
        run.leave();
}

void opens_four(Run& run) {
    if (!run.enter())
        return;
    bool up[5] = {};
    for (const int32_t profile : {1, 2, 3, 4})
        up[profile] = run.open(profile);
    for (const int32_t profile : {2, 1, 4, 3})
        if (up[profile])
            run.close(profile);
    if (!run.is_hurt())
        run.leave();
}

// The second user is answered by the library, when it comes and when the first one leaves.
void joins(Run& run) {
    if (!run.enter() || !run.enter(1))
        return;
    if (run.open(1) && run.open(1, 1)) {
        run.close(1);
        run.close(1, 1);
    }
    if (!run.is_hurt()) {
        run.leave();
        run.leave(1);
    }
}

void kills(Run& run) {
    if (!run.enter())
        return;
    if (run.open(1))
        run.kill(1);
    if (!run.is_hurt())
        run.leave();
}

// The connection of another thread, who is told that it has ended.
void kills_anothers(Run& run) {
    constexpr int32_t kKilled = 22;
    if (!run.enter() || !run.enter(1))
        return;
    if (run.open(1, 1) && run.kill(1)) {
        const Run::Told told = run.wait_until_told(1, NETCM_EVENT_STOP_IND, 1);
        for (const test::Event& event : events::of(1))
            if (event.type == NETCM_EVENT_STOP_IND && told == Run::Told::Outcome && !Run::is_lost(1, 1))
                run.expect(event.result == kKilled, "the other is told " + std::to_string(event.result));
    }
    if (!run.is_hurt()) {
        run.leave();
        run.leave(1);
    }
}

void cleans_up(Run& run) {
    constexpr uint32_t kList = wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ;
    wire::ActiveConnectionBlock block{};
    block.Count = 1;
    block.Connection[0].ProfileId = 1;
    run.server.on(kList, Answer().record(test::answer_record(kList)).block(block));
    if (!run.enter())
        return;
    const bool up = run.open(1);
    const bool cleaned = run.result("cleanup", NetCMConnectionCleanup());
    // With the link, a kill that waits is forgotten.
    if (up && cleaned && !run.is_hurt())
        run.wait_until_told(0, NETCM_EVENT_KILL_RSP, 1);
    if (!run.is_hurt())
        run.leave();
}

// ---- What the server tells by itself

void is_told(Run& run) {
    if (!run.enter())
        return;
    if (run.open(1)) {
        Bytes change = test::bytes_of(test::indication(wire::NETCM_CLIENT_IP_CHANGE_IND, 0, 1)) +
                       test::bytes_of(test::connection_block());
        run.server.try_push(test::bytes_of(test::indication(wire::NETCM_CLIENT_SUSPEND_IND, 0, 1)));
        run.server.try_push(test::bytes_of(test::indication(wire::NETCM_CLIENT_RESUME_IND, 0, 1)));
        run.server.try_push(change);
        run.server.try_push(test::bytes_of(test::indication(wire::NETCM_CLIENT_STOP_IND, 0, 1)));
        run.wait_until_told(0, NETCM_EVENT_STOP_IND, 1);
    }
    if (!run.is_hurt())
        run.leave();
}

// ---- Queries

void asks_everything(Run& run) {
    for (const test::Query& query : test::queries())
        run.server.on(query.command, Answer().record(test::answer_record(query.command)).bytes(query.block));
    if (!run.enter())
        return;
    const bool up = run.open(1);
    for (const test::Query& query : test::queries()) {
        if (!query.needs_call)
            run.result(query.name, query.ask());
        else if (up)  // which may have ended meanwhile, with the link
            run.result(
                query.name, query.ask(),
                {NETCM_SUCCESS, NETCM_ERR_FAILURE, NETCM_ERR_REREGISTER_FAILED, NETCM_ERR_NOT_REGISTERED});
    }
    const uint32_t supported = NetCMNetIfaceSupport(NETCM_IFACE_PDP);
    run.expect(supported <= 1, "support of an interface is " + std::to_string(supported));
    NetCMConnInfo details{};
    const uint32_t known = NetCMDeviceGetInfo(1, &details);
    run.expect(
        known == (up && !Run::is_lost(0, 1) ? NETCM_SUCCESS : NETCM_ERR_NOT_ACTIVE) || Run::is_lost(0, 1),
        "the details of a connection give " + std::to_string(known));
    if (up)
        run.close(1);
    if (!run.is_hurt())
        run.leave();
}

// ---- Tunnel data

Bytes tunnel_event(uint32_t code, uint32_t id, uint32_t length) {
    wire::Record record{};
    record.Code = code;
    record.Word2 = length;
    record.CallId = id;
    return test::bytes_of(record) + Bytes(length, std::byte{'x'});
}

bool is_told_of_tunnel(Run& run, uint32_t type) {
    const auto has_come = [=] {
        for (const test::Event& event : events::of(0))
            if (event.type == type)
                return true;
        return test::link_is_broken();
    };
    return run.expect(test::eventually(has_come), "tunnel data never come");
}

void tunnels(Run& run) {
    constexpr uint32_t kId = 77;
    constexpr uint32_t kLarge = 5000;
    run.server.on(wire::NETCM_CLIENT_TUNNEL_REQ, [](const test::Request& request) {
        wire::Record record = test::answer_record(request.command());
        record.CallId = kId;
        return Answer().record(record).push(tunnel_event(wire::NETCM_CLIENT_TUNNEL_RSP, kId, kLarge));
    });
    if (!run.enter())
        return;
    char data[3000] = {};
    NetCMTunnelData request = {.Param = 1, .RequestId = 0, .DataLength = sizeof data, .Data = data};
    if (run.result("tunnel request", NetCMTunnelRequest(&request)) && !run.is_hurt()) {
        run.expect(request.RequestId == kId, "the request has another id");
        is_told_of_tunnel(run, NETCM_EVENT_TUNNEL_RSP);
    }
    if (run.result("tunnel indications", NetCMClientRegisterTunnelInd()) &&
        run.server.try_push(tunnel_event(wire::NETCM_CLIENT_TUNNEL_IND, 3, 40)) && !run.is_hurt())
        is_told_of_tunnel(run, NETCM_EVENT_TUNNEL_IND);
    run.result("no tunnel indications", NetCMClientDeRegisterTunnelInd());
    if (!run.is_hurt())
        run.leave();
}

// ---- Profiles

Bytes room_for(uint32_t command) {
    switch (command) {
        case wire::NETPM_CLIENT_GET_PROFILE_REQ:
        case wire::NETPM_CLIENT_GET_DEFAULT_PROFILE_REQ:
            return Bytes(sizeof(wire::PmProfileSlot));
        case wire::NETPM_CLIENT_GET_POFILE_LIST_REQ:
        case wire::NETPM_CLIENT_GET_PROFILE_ID_FOR_APN_REQ:
        case wire::NETPM_CLIENT_FIND_PROFILE_IDS_REQ:
            return Bytes(sizeof(wire::PmIdListBlock));
        case wire::NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ:
            return Bytes(sizeof(wire::PmPartialListBlock));
        default:
            return {};
    }
}

Answer profile_answer(const test::Request& request) {
    const auto command = request.payload_as<wire::PmRequestHeader>().Command;
    wire::PmResponseBlock block = test::agreement(command);
    const Bytes data = room_for(command);
    block.ExtDataLength = static_cast<uint32_t>(data.size());
    return Answer().record(test::pm_record(block)).bytes(data);
}

Answer application_answer(const test::Request& request) {
    wire::AppProfMsg message = request.payload_as<wire::AppProfMsg>();
    message.Cmd += wire::kPmAnswer;
    message.Result = NETCM_SUCCESS;
    message.AppProf.Param = message.AppProf.AppId;
    if (message.Cmd == wire::NETPM_APPPROF_ASYNC_PROPER_PROFILE + wire::kPmAnswer)
        return Answer().push(test::app_record(message));
    return Answer().record(test::app_record(message));
}

void keeps_profiles(Run& run) {
    run.server.on(wire::NETPM_PROFILE_REQ, profile_answer);
    if (!run.enter())
        return;
    for (const test::StoreOperation& operation : test::store_operations())
        run.result(operation.name, operation.call());
    run.leave();
}

void keeps_bindings(Run& run) {
    run.server.on(wire::NETPM_APPPROF_REQ, application_answer);
    if (!run.enter())
        return;
    for (const test::AppOperation& operation : test::app_operations()) {
        if (operation.answers_with_truth)
            run.result(operation.name, operation.call(), {1, 0});
        else
            run.result(operation.name, operation.call());
    }
    run.leave();
}

void asks_for_a_proper_profile(Run& run) {
    run.server.on(wire::NETPM_APPPROF_REQ, application_answer);
    if (!run.enter())
        return;
    if (run.result("proper profile", NetPMAppProfGetProperProfileAsync(6)) && !run.is_hurt())
        run.expect(events::wait_for_user(0, 1), "no answer to the question for a proper profile");
    run.leave();
}

// ---- A server that does not live for ever

uint32_t ask_status() {
    uint32_t status = 0;
    return NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status);
}

void meets_a_new_server(Run& run) {
    if (!run.enter())
        return;
    const bool up = run.open(1);
    run.server.stop();
    if (up)
        run.expect(test::eventually([] { return Run::is_lost(0, 1); }), "the end of the server is not told");
    // Who asks while the others are still being told meets what is left of the old link.
    run.expect(test::eventually(test::link_is_broken), "the end of the server goes unnoticed");
    run.server.start();
    run.result("query", ask_status());
    events::clear();
    if (run.open(2))
        run.close(2);
    if (!run.is_hurt())
        run.leave();
}

// The server ends within this request, and is there again behind it: what was begun fails.
template <class Body>
void with_a_server_that_ends(Run& run, uint32_t command, const char* what, Body body) {
    run.settle();
    run.server.once(command, Answer().close_async().close());
    const uint32_t got = body();
    run.expect(got == NETCM_ERR_FAILURE || (run.is_hurt() && got == NETCM_ERR_REREGISTER_FAILED),
               std::string(what) + " gives " + std::to_string(got) + " when the server ends");
    // A request that has failed before it was sent, or read, leaves the server there.
    if (!run.server.take_back(command))
        run.expect(test::eventually(test::link_is_broken), "the end of the server goes unnoticed");
}

void asks_servers_that_end(Run& run) {
    if (!run.enter())
        return;
    for (const test::Query& query : test::queries()) {
        if (query.needs_call)
            continue;
        with_a_server_that_ends(run, query.command, query.name, query.ask);
        run.server.on(query.command, Answer().record(test::answer_record(query.command)).bytes(query.block));
        run.result(query.name, query.ask());
    }
    run.leave();
}

void opens_at_servers_that_end(Run& run) {
    if (!run.enter())
        return;
    with_a_server_that_ends(run, wire::NETCM_CLIENT_START_REQ, "open", [] {
        const int32_t profile = 1;
        return NetCMConnectionOpen(&profile, 1);
    });
    run.be_good();
    run.result("query", ask_status());
    if (run.open(1))
        run.close(1);
    if (!run.is_hurt())
        run.leave();
}

// ---- Callbacks

// They ask the server while an outcome is being told.
void has_busy_callbacks(Run& run) {
    std::atomic<bool> was_refused{false};
    const auto hook = events::during([&](const test::Event& event) {
        uint32_t result = NETCM_SUCCESS;
        if (event.type == NETCM_EVENT_OPEN_RSP)
            result = ask_status();
        if (event.type == NETCM_EVENT_CLOSE_RSP)
            result = NetCMClientRegisterTunnelInd();
        if (result != NETCM_SUCCESS)
            was_refused = true;
    });
    if (!run.enter())
        return;
    if (run.open(1))
        run.close(1);
    run.expect(run.is_hurt() || !was_refused, "a callback's query is refused");
    if (!run.is_hurt())
        run.leave();
}

}  // namespace

const std::vector<Scenario>& scenarios() {
    static const std::vector<Scenario> all = [] {
        std::vector<Scenario> every = {
            {"registers", registers, true},
            {"register_three", register_three, true},
            {"opens_and_closes", opens_and_closes, true},
            {"opens_the_default_profile", opens_the_default_profile},
            {"opens_four", opens_four},
            {"joins", joins},
            {"kills", kills},
            {"kills_anothers", kills_anothers},
            {"cleans_up", cleans_up},
            {"is_told", is_told},
            {"asks_everything", asks_everything},
            {"tunnels", tunnels},
            {"keeps_profiles", keeps_profiles},
            {"keeps_bindings", keeps_bindings},
            {"asks_for_a_proper_profile", asks_for_a_proper_profile, true},
            {"meets_a_new_server", meets_a_new_server},
            {"asks_servers_that_end", asks_servers_that_end},
            {"opens_at_servers_that_end", opens_at_servers_that_end},
            {"has_busy_callbacks", has_busy_callbacks},
        };
        every.insert(every.end(), name_scenarios().begin(), name_scenarios().end());
        return every;
    }();
    return all;
}

}  // namespace quorvel::sweep
