// netcm open, watch, close, kill, cleanup
#include <algorithm>
#include <chrono>

#include "../Command.h"
#include "../Lists.h"
#include "../Status.h"

namespace quorvel::netcm {
namespace {

struct OpenOptions {
    int32_t profile = 0;
    StayOption stay;

    void define(CLI::App& command) {
        command.add_option("PROFILE", profile, "Profile id; 0 or nothing for the default profile")
            ->type_name("")
            ->check(CLI::Range(0, kLargestId));
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

void run_open(const CommonOptions& common, const OpenOptions& options) {
    Printer printer = common.printer();
    const EventHandler print = printing(printer);
    Session session;
    if (const std::optional<Event> response = session.open(options.profile, print)) {
        print_open_response(common, *response);
        session.follow(options.stay.deadline(), print);
    }
    session.end(print);
}

void run_watch(const CommonOptions& common, const StayOption& stay) {
    Printer printer = common.printer();
    Session session;
    session.follow(stay.deadline(), printing(printer));
    session.end(printing(printer));
}

struct CloseOptions {
    int32_t profile = 0;
    bool open_first = false;
    TimeoutOption timeout;

    void define(CLI::App& command) {
        add_profile(command, profile);
        command.add_flag("--open", open_first, "Open the profile first");
        timeout.define(command);
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
    if (options.open_first && !session.open(options.profile, forget)) {
        throw Failure(what + ": interrupted");
    }
    require_success(
        NetCMConnectionClose(options.profile), what,
        "A process closes only what it has opened itself: interrupt the `netcm open` that holds the "
        "connection,\nend it for all its users with `netcm kill`, or open it here first with --open.");
    const EventTest is_answer = answer_for(NETCM_EVENT_CLOSE_RSP, options.profile);
    print_answer(common, options.timeout.await(session, is_answer, "close response"), what);
    session.end(forget);
}

struct KillOptions {
    int32_t profile = 0;
    TimeoutOption timeout;

    void define(CLI::App& command) {
        add_profile(command, profile);
        timeout.define(command);
    }
};

void run_kill(const CommonOptions& common, const KillOptions& options) {
    const std::string what = "cannot kill the connection of profile " + std::to_string(options.profile);
    Session session;
    require_success(NetCMConnectionKill(options.profile), what);
    const EventTest is_answer = answer_for(NETCM_EVENT_KILL_RSP, options.profile);
    print_answer(common, options.timeout.await(session, is_answer, "kill response"), what);
    session.end(forget);
}

bool is_active(const Json& connection) {
    const Json ids = active_ids();
    return std::ranges::find(ids, connection["profile_id"]) != ids.end();
}

// Of several kills the library tells only the first one's response, so the list of what is active has to say
// when all of them have had their effect.
void run_cleanup(const CommonOptions& common, const TimeoutOption& timeout) {
    constexpr auto kPause = std::chrono::milliseconds(50);
    Session session;
    Json connections = active_connections(NETCM_IFACE_PDP);
    require_success(NetCMConnectionCleanup(), "cannot clean up");
    const Deadline deadline = timeout.deadline();
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
            "Prints the open response, then every further event until SIGINT or SIGTERM comes or the time "
            "is\n"
            "up. Then closes the connection, and prints the close response too.");
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
