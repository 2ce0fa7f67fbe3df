#include "run.h"

#include <cstdio>

#include "command-line/Run.h"
#include "log.h"
#include "program.h"
#include "proposal.h"

namespace quorvel::cm {
namespace {

int check_config(const std::string& path) {
    if (path.empty())
        throw ConfigError("--check-config needs --config FILE");
    const Config config = read_config(path);
    const auto count = [](size_t number, const char* what) {
        return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
    };
    std::printf("%s: no fault found; %s, %s\n", path.c_str(),
                count(config.networks.size(), "network").c_str(),
                count(config.profiles.size(), "profile").c_str());
    return command_line::kDone;
}

int discover() {
    log::set_level(log::Level::kError);
    std::fputs(propose_configuration().c_str(), stdout);
    return command_line::kDone;
}

int serve(Arguments& arguments) {
    if (arguments.discover)
        return discover();
    if (arguments.check_config)
        return check_config(arguments.server.config);
    log::set_level(log::level_from_name(arguments.log_level));
    log::set_format(arguments.log_format == "json" ? log::Format::kJson : log::Format::kText);
    arguments.server.limits.request_time = std::chrono::milliseconds(arguments.request_time);
    if (arguments.server.store.empty())
        arguments.server.store = default_store_path();
    Config config =
        arguments.server.config.empty() ? built_in_config() : read_config(arguments.server.config);
    if (config.log_level && !arguments.server.log_level_given)
        log::set_level(*config.log_level);
    arguments.server.record.about["program"] = "cm-server " QUORVEL_VERSION;
    Server server(arguments.server, std::move(config));
    server.run();
    return command_line::kDone;
}

}  // namespace

int run(int argc, char** argv) {
    CLI::App app;
    app.set_version_flag("--version", "cm-server " QUORVEL_VERSION);
    Arguments arguments;
    describe(app, arguments);
    return command_line::run(app, argc, argv, [&] {
        arguments.server.log_level_given = app.count("--log-level") > 0;
        return app.get_subcommands().empty() ? serve(arguments) : command_line::kDone;
    });
}

}  // namespace quorvel::cm
