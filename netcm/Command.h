// What the subcommands share.
#pragma once

#include <quorvel/NetCM.h>

#include <CLI/CLI.hpp>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Printer.h"
#include "Session.h"

namespace quorvel::netcm {

// The options that stand before or behind any subcommand.
struct CommonOptions {
    bool json = false;

    Printer printer() const;
};

// Adds a subcommand. Its options are a struct that declares them with `define(CLI::App&)`; `run` gets them
// when the subcommand has been chosen.
template <class Options>
CLI::App* add_command(CLI::App& parent, const CommonOptions& common, const char* name, const char* help,
                      void (*run)(const CommonOptions&, const Options&)) {
    CLI::App* command = parent.add_subcommand(name, help);
    const auto options = std::make_shared<Options>();
    options->define(*command);
    command->callback([&common, options, run] { run(common, *options); });
    return command;
}

struct NoOptions {
    void define(CLI::App&) {}
};

// Each adds the subcommands of one family to the program.
void add_connection_commands(CLI::App& app, const CommonOptions& common);
void add_control_commands(CLI::App& app, const CommonOptions& common);
void add_information_commands(CLI::App& app, const CommonOptions& common);
void add_tunnel_commands(CLI::App& app, const CommonOptions& common);
void add_profile_commands(CLI::App& app, const CommonOptions& common);
void add_application_commands(CLI::App& app, const CommonOptions& common);
void add_resolve_command(CLI::App& app, const CommonOptions& common);

// The whole program.
void describe(CLI::App& app, CommonOptions& common);

// Prints each event as it comes; forgets it.
EventHandler printing(Printer& printer);
void forget(const Event& event);

constexpr int32_t kLargestId = std::numeric_limits<int32_t>::max();

// The PROFILE of a command that needs one.
CLI::Option* add_profile(CLI::App& command, int32_t& profile);

// `--for SECONDS` of a command that stays: without it, until it is interrupted.
struct StayOption {
    std::optional<double> seconds;

    void define(CLI::App& command);
    Deadline deadline() const;
};

// `--timeout SECONDS` of a command that waits for an answer.
struct TimeoutOption {
    double seconds = 30;

    void define(CLI::App& command);
    Deadline deadline() const;
    // The event that passes the test; throws a Failure when it did not come.
    Event await(Session& session, const EventTest& test, const std::string& what) const;
};

// An option that takes pdp or wifi, or a list of them.
template <class Interfaces>
CLI::Option* add_interface(CLI::App& command, const char* name, Interfaces& interfaces, const char* help) {
    const std::map<std::string, uint32_t> names{{"pdp", NETCM_IFACE_PDP}, {"wifi", NETCM_IFACE_WIFI}};
    return command.add_option(name, interfaces, help)
        ->transform(CLI::CheckedTransformer(names).description(""))
        ->type_name("pdp|wifi");
}
const char* interface_name(uint32_t interface);

}  // namespace quorvel::netcm
