// netcm open, watch, close, kill, cleanup
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>

#include "../Child.h"
#include "../Command.h"
#include "../Lists.h"
#include "../Status.h"
#include "../TimeLimit.h"

namespace quorvel::netcm {
namespace {

struct OpenOptions {
    int32_t profile = 0;
    bool wait = false;
    bool retry = false;
    StayOption stay;

    void define(CLI::App& command) {
        command.add_option("PROFILE", profile, "Profile id; 0 or nothing for the default profile")
            ->type_name("")
            ->check(CLI::Range(0, kLargestId));
        CLI::Option* stays = command.add_flag("--wait", wait, "Stay when the connection has ended");
        command.add_flag("--retry", retry, "Open it again whenever it ends or does not come up")
            ->excludes(stays);
        stay.define(command);
    }
};

// In JSON every line is an event; a person sees the open response as a block of its own.
void print_open_response(const CommonOptions& common, const Event& response) {
    Printer printer = common.printer();
    if (const auto* info = std::get_if<NetCMConnInfo>(&response.data); info != nullptr && !common.json) {
        printer.result(to_json(*info));
    } else {
        printer.event(to_json(response));
    }
}

std::string describe_end(const Event& event) {
    const Json words = to_json(event);
    return "the connection has ended: " +
           words.value("meaning", "result " + std::to_string(event.result) + " of the CM server");
}

// Nothing when the user or the clock has ended it; throws a Failure when the connection does not come up.
std::optional<Event> open_and_print(const CommonOptions& common, const OpenOptions& options, Session& session,
                                    const EventHandler& print) {
    limit_time(common);
    auto response = session.open(options.profile, answer_deadline(common), print);
    stop_time_limit();
    if (response) {
        print_open_response(common, *response);
    } else if (!session.interrupted()) {
        throw Failure("no open response within the time-out");
    }
    return response;
}

// The event with which the connection has ended; nothing when it is still there.
std::optional<Event> hold(Session& session, Deadline deadline, const EventHandler& print) {
    const EventTest has_ended = [&print](const Event& event) {
        print(event);
        return profiles_in_use().empty();
    };
    return session.await(has_ended, deadline, forget);
}

void hold_again_and_again(const CommonOptions& common, const OpenOptions& options, Session& session,
                          const EventHandler& print) {
    constexpr auto kPause = std::chrono::seconds(1);
    const Deadline deadline = options.stay.deadline();
    while (!session.interrupted() && !has_passed(deadline)) {
        try {
            if (!open_and_print(common, options, session, print) || !hold(session, deadline, print)) {
                return;
            }
        } catch (const Failure& failure) {
            stop_time_limit();
            std::fprintf(stderr, "netcm: %s; trying again\n", failure.what());
        }
        const Deadline next = in(kPause);
        session.follow(deadline ? std::min(next, deadline) : next, print);
    }
}

Environment environment_of(const Event& response) {
    const Json words = to_json(response);
    std::string servers;
    for (const Json& server : words["dns_servers"]) {
        servers += (servers.empty() ? "" : " ") + server.get<std::string>();
    }
    return {{"NETCM_PROFILE", std::to_string(response.profile)},
            {"NETCM_INTERFACE", words["interface"]},
            {"NETCM_ADDRESS", words["address"]},
            {"NETCM_DNS_SERVERS", servers}};
}

// Standard output is the command's; it ends with the connection at the latest.
void run_behind(const CommonOptions& common, const OpenOptions& options) {
    constexpr uint32_t kCommandEnded = UINT32_MAX;
    Session session;
    const Event response = open(common, session, options.profile);
    stop_time_limit();
    session.take_time(true);
    Child child(common.behind, environment_of(response), [] { Session::tell(kCommandEnded); });
    const EventTest is_over = [](const Event& event) {
        return event.type == kCommandEnded || profiles_in_use().empty();
    };
    const auto over = session.await(is_over, options.stay.deadline(), forget);
    if (!child.has_ended()) {
        const int wanted = session.interrupted() ? session.signal_to_hand_on() : SIGTERM;
        child.send_signal(wanted);
    }
    common.status = child.status();
    session.take_time(false);
    const bool lost = over && over->type != kCommandEnded;
    session.end(forget);
    if (lost) {
        throw Failure(describe_end(*over) + "; " + common.behind[0] + " was asked to end");
    }
}

void run_open(const CommonOptions& common, const OpenOptions& options) {
    if (!common.behind.empty()) {
        if (options.wait || options.retry) {
            throw CLI::ValidationError("--",
                                       "a command ends with its connection: leave --wait and --retry away");
        }
        return run_behind(common, options);
    }
    Printer printer = common.printer();
    const EventHandler print = printing(printer);
    Session session;
    std::optional<Event> end;
    if (options.retry) {
        hold_again_and_again(common, options, session, print);
    } else if (open_and_print(common, options, session, print)) {
        end = hold(session, options.stay.deadline(), print);
        if (end && options.wait) {
            session.follow(options.stay.deadline(), print);
        }
    }
    session.end(print);
    if (end && !options.wait) {
        throw Failure(describe_end(*end));
    }
}

void run_watch(const CommonOptions& common, const StayOption& stay) {
    Printer printer = common.printer();
    Session session;
    stop_time_limit();
    session.follow(stay.deadline(), printing(printer));
    session.end(printing(printer));
}

struct CloseOptions {
    int32_t profile = 0;
    bool open_first = false;

    void define(CLI::App& command) {
        add_profile(command, profile);
        command.add_flag("--open", open_first, "Open the profile first");
    }
};

// The answer of the server to a close or a kill: printed, and a failure when the server refused.
void print_answer(const CommonOptions& common, const Event& answer, const std::string& what) {
    common.printer().event(to_json(answer));
    require_success(static_cast<uint32_t>(answer.result), what);
}

EventTest answer_for(uint32_t type, int32_t profile) {
    return [=](const Event& event) { return event.type == type && event.profile == profile; };
}

void run_close(const CommonOptions& common, const CloseOptions& options) {
    const std::string what = "cannot close profile " + std::to_string(options.profile);
    Session session;
    if (options.open_first) {
        open(common, session, options.profile);
    }
    require_success(
        NetCMConnectionClose(options.profile), what,
        "A process closes only what it has opened itself: interrupt the `netcm open` that holds the "
        "connection,\nend it for all its users with `netcm kill`, or open it here first with --open.");
    const EventTest is_answer = answer_for(NETCM_EVENT_CLOSE_RSP, options.profile);
    print_answer(common, await(common, session, is_answer, "close response"), what);
    session.end(forget);
}

struct KillOptions {
    int32_t profile = 0;

    void define(CLI::App& command) { add_profile(command, profile); }
};

void run_kill(const CommonOptions& common, const KillOptions& options) {
    const std::string what = "cannot kill the connection of profile " + std::to_string(options.profile);
    Session session;
    require_success(NetCMConnectionKill(options.profile), what);
    const EventTest is_answer = answer_for(NETCM_EVENT_KILL_RSP, options.profile);
    print_answer(common, await(common, session, is_answer, "kill response"), what);
    session.end(forget);
}

bool is_active(const Json& connection) {
    const Json ids = active_ids();
    return std::ranges::find(ids, connection["profile_id"]) != ids.end();
}

// Of several kills the library tells only the first one's response, so the list of what is active has to say
// when all of them have had their effect.
void run_cleanup(const CommonOptions& common, const NoOptions&) {
    constexpr auto kPause = std::chrono::milliseconds(50);
    Session session;
    Json connections = active_connections(NETCM_IFACE_PDP);
    require_success(NetCMConnectionCleanup(), "cannot clean up");
    const Deadline deadline = answer_deadline(common);
    while (std::ranges::any_of(connections, is_active)) {
        if (has_passed(deadline) || session.interrupted()) {
            throw Failure("not every connection has ended");
        }
        session.follow(in(kPause), forget);
    }
    common.printer().result(connections);
    session.end(forget);
}

}  // namespace

void add_connection_commands(CLI::App& app, const CommonOptions& common) {
    add_command(app, common, "open", "Open a connection, hold it and print what happens to it", run_open)
        ->footer(
            "Prints the open response, then every further event, until the connection ends, SIGINT or "
            "SIGTERM\n"
            "comes, or the time is up. Then closes the connection, and prints the close response too. A\n"
            "connection that ends by itself is a failure, unless --wait or --retry is given.\n"
            "\n"
            "netcm open [PROFILE] -- COMMAND... runs a command while the connection is up, and ends with "
            "its\n"
            "status. The command finds NETCM_PROFILE, NETCM_INTERFACE, NETCM_ADDRESS and NETCM_DNS_SERVERS "
            "in\n"
            "its environment, and is sent SIGTERM when the connection ends.");
    add_command(app, common, "watch", "Print events without opening a connection", run_watch)
        ->footer("A process without a connection hears of the network's status and of tunnel data.");
    add_command(app, common, "close", "Close a connection of this process (needs --open)", run_close)
        ->footer(
            "Connections belong to the process that has opened them, and end with it. With --open this "
            "opens\n"
            "and closes the profile: a check that the profile works.");
    add_command(app, common, "kill", "End a profile's connection, whoever uses it", run_kill);
    add_command(app, common, "cleanup", "End every active packet-data connection", run_cleanup)
        ->footer("Takes two seconds for each connection.");
}

}  // namespace quorvel::netcm
