// cm-server: the connection manager's daemon.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "control/ctl.h"
#include "log.h"
#include "monitor/monitor.h"
#include "monitor/replay.h"
#include "server.h"

namespace quorvel::cm {
namespace {

struct Arguments {
    ServerOptions server;
    std::string config;
    std::string log_level = "info";
    int64_t request_time = 5000;
};

void describe_options(CLI::App& app, Arguments& arguments) {
    arguments.server.socket = wire::kServerPath;
    app.set_version_flag("--version", "cm-server " QUORVEL_VERSION);
    app.add_option("--socket", arguments.server.socket, "Path of the socket to serve on")
        ->capture_default_str();
    app.add_option(
        "--db", arguments.server.store,
        "File that keeps the profiles, or \":memory:\"; cm-server.db below the user's state directory "
        "when not given");
    app.add_option("--config", arguments.config, "Configuration file; without one a profile on lo is served")
        ->check(CLI::ExistingFile);
    app.add_option("--log-level", arguments.log_level, "How much to log")
        ->check(CLI::IsMember({"error", "warning", "info", "debug"}))
        ->capture_default_str();
    app.add_option("--max-clients", arguments.server.max_clients,
                   "How many clients may be registered at a time")
        ->check(CLI::Range(1, 4096))
        ->capture_default_str();
    app.add_option("--request-time", arguments.request_time,
                   "Milliseconds for which a client may leave a request unfinished")
        ->check(CLI::Range(10, 600000))
        ->capture_default_str();
}

int serve(Arguments& arguments) {
    log::set_level(log::level_from_name(arguments.log_level));
    arguments.server.limits.request_time = std::chrono::milliseconds(arguments.request_time);
    if (arguments.server.store.empty())
        arguments.server.store = default_store_path();
    Server server(arguments.server,
                  arguments.config.empty() ? built_in_config() : read_config(arguments.config));
    server.run();
    return 0;
}

}  // namespace
}  // namespace quorvel::cm

int main(int argc, char** argv) {
    CLI::App app(
        "The connection manager: brings connections up for applications, over this machine's network.",
        "cm-server");
    quorvel::cm::Arguments arguments;
    try {
        quorvel::cm::describe_options(app, arguments);
        quorvel::cm::add_ctl(app, arguments.server.socket);
        quorvel::cm::add_monitor(app, arguments.server.socket);
        quorvel::cm::add_replay(app, arguments.server.socket);
        app.parse(argc, argv);
        return app.get_subcommands().empty() ? quorvel::cm::serve(arguments) : 0;
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "cm-server: %s\n", error.what());
        return 1;
    }
}
