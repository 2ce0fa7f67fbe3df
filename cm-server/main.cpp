// cm-server: the connection manager's daemon.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "log.h"
#include "program.h"

namespace quorvel::cm {
namespace {

int serve(Arguments& arguments) {
    log::set_level(log::level_from_name(arguments.log_level));
    log::set_format(arguments.log_format == "json" ? log::Format::kJson : log::Format::kText);
    arguments.server.limits.request_time = std::chrono::milliseconds(arguments.request_time);
    if (arguments.server.store.empty())
        arguments.server.store = default_store_path();
    Config config =
        arguments.server.config.empty() ? built_in_config() : read_config(arguments.server.config);
    if (config.log_level && !arguments.server.log_level_given)
        log::set_level(*config.log_level);
    Server server(arguments.server, std::move(config));
    server.run();
    return 0;
}

}  // namespace
}  // namespace quorvel::cm

int main(int argc, char** argv) {
    CLI::App app;
    app.set_version_flag("--version", "cm-server " QUORVEL_VERSION);
    quorvel::cm::Arguments arguments;
    try {
        quorvel::cm::describe(app, arguments);
        app.parse(argc, argv);
        arguments.server.log_level_given = app.count("--log-level") > 0;
        return app.get_subcommands().empty() ? quorvel::cm::serve(arguments) : 0;
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "cm-server: %s\n", error.what());
        return 1;
    }
}
