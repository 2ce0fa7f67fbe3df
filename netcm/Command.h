// What the subcommands share.
#pragma once

#include <quorvel/NetCM.h>

#include <CLI/CLI.hpp>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Printer.h"
#include "Session.h"

namespace quorvel::netcm {

// The options that stand before or behind any subcommand.
struct CommonOptions {
    bool json = false;
    // Seconds that the CM server may take to answer, when they have been given.
    std::optional<double> timeout;
    // What stands behind "--" of a command that runs another.
    std::vector<std::string> behind;
    // With which netcm ends when everything has been done.
    mutable int status = 0;

    Printer printer() const;
};

// Starts what `--timeout` says, if it has been given.
void limit_time(const CommonOptions& common);

// Adds a subcommand. Its options are a struct that declares them with `define(CLI::App&)`; `run` gets them
// when the subcommand has been chosen.
template <class Options>
CLI::App* add_command(CLI::App& parent, const CommonOptions& common, const char* name, const char* help,
                      void (*run)(const CommonOptions&, const Options&)) {
    CLI::App* command = parent.add_subcommand(name, help);
    const auto options = std::make_shared<Options>();
    options->define(*command);
    command->callback([&common, options, run] {
        limit_time(common);
        run(common, *options);
    });
    return command;
}

struct NoOptions {
    void define(CLI::App&) {}
};

// Each adds the subcommands of one family to the program.
void add_connection_commands(CLI::App& app, const CommonOptions& common);
void add_control_commands(CLI::App& app, const CommonOptions& common);
void add_information_commands(CLI::App& app, const CommonOptions& common);
void add_top_command(CLI::App& app, const CommonOptions& common);
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

// `--for TIME` of a command that stays: without it, until it is interrupted.
struct StayOption {
    std::optional<double> seconds;

    void define(CLI::App& command);
    Deadline deadline() const;
};

// When an answer has to be there: after the time-out, or after half a minute.
Deadline answer_deadline(const CommonOptions& common);
// The event that passes the test; throws a Failure when it did not come.
Event await(const CommonOptions& common, Session& session, const EventTest& test, const std::string& what);
// Opens the profile (0: the default), or throws a Failure.
Event open(const CommonOptions& common, Session& session, int32_t profile);

// Puts the number in the place of a name, for `transform`. The numbers themselves are taken, too.
using NamedNumbers = std::vector<std::pair<std::string, uint32_t>>;
CLI::Validator one_of(NamedNumbers names);

// An option that takes pdp or wifi, or a list of them.
template <class Interfaces>
CLI::Option* add_interface(CLI::App& command, const char* name, Interfaces& interfaces, const char* help) {
    return command.add_option(name, interfaces, help)
        ->transform(one_of({{"pdp", NETCM_IFACE_PDP}, {"wifi", NETCM_IFACE_WIFI}}))
        ->type_name("pdp|wifi");
}
const char* interface_name(uint32_t interface);

}  // namespace quorvel::netcm
