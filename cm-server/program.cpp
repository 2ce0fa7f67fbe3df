#include "program.h"

#include "command-line/Duration.h"
#include "control/ctl.h"
#include "monitor/monitor.h"
#include "monitor/replay.h"
#include "record/convert.h"
#include "record/options.h"
#include "record/report.h"

namespace quorvel::cm {
namespace {

// Of milliseconds, as they have been read.
std::string request_time_problem(const std::string& text) {
    const double time = std::stod(text);
    return time < 10 || time > 600'000 ? "it has to be from 10ms to 10m" : "";
}

}  // namespace

void describe(CLI::App& app, Arguments& arguments) {
    app.name("cm-server");
    app.description(
        "The connection manager: brings connections up for applications, over this machine's network.");
    arguments.server.socket = wire::kServerPath;
    app.add_option("--socket", arguments.server.socket, "Path of the socket to serve on")
        ->capture_default_str();
    app.add_option(
        "--db", arguments.server.store,
        "File that keeps the profiles, or \":memory:\"; cm-server.db below the user's state directory "
        "when not given");
    app.add_option("--config", arguments.server.config,
                   "Configuration file; without one a profile on lo is served")
        ->check(CLI::ExistingFile);
    app.add_flag("--check-config", arguments.check_config,
                 "Check the configuration file, print every fault, and do not serve");
    app.add_flag("--discover", arguments.discover,
                 "Print a configuration for what NetworkManager or this machine has, and do not serve");
    app.add_option("--log-level", arguments.log_level, "How much to log")
        ->check(CLI::IsMember({"error", "warning", "info", "debug"}))
        ->capture_default_str();
    app.add_option("--log-format", arguments.log_format, "Log in text, or an object of JSON on each line")
        ->check(CLI::IsMember({"text", "json"}))
        ->capture_default_str();
    app.add_option("--max-clients", arguments.server.max_clients,
                   "How many clients may be registered at a time")
        ->check(CLI::Range(1, 4096))
        ->capture_default_str();
    app.add_option(
           "--request-time", arguments.request_time,
           "How long a client may leave a request unfinished, such as 500ms or 5s; milliseconds without a "
           "unit")
        ->transform(command_line::duration_in_milliseconds())
        ->check(CLI::Validator(&request_time_problem, ""))
        ->type_name("TIME")
        ->default_str("5s");
    add_record_options(app, arguments.server.record,
                       "Record everything that passes, from the first byte on, in this file; *.pcapng for "
                       "Wireshark");
    add_ctl(app, arguments.server.socket);
    add_monitor(app, arguments.server.socket);
    add_replay(app, arguments.server.socket);
    add_convert(app);
    add_report(app);
}

}  // namespace quorvel::cm
