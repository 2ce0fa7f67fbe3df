#include "Command.h"

#include <iostream>

#include "Status.h"

namespace quorvel::netcm {
namespace {

constexpr double kThirtyYears = 1e9;

}  // namespace

Printer CommonOptions::printer() const {
    return {std::cout, json ? Format::kJson : Format::kText};
}

void describe(CLI::App& app, CommonOptions& common) {
    app.name("netcm");
    app.description("Connections, profiles and names of the connection manager.");
    app.add_flag("--json", common.json, "Print JSON: one document, or one line per event");
    app.require_subcommand(1);
    app.fallthrough();
    add_connection_commands(app, common);
    add_control_commands(app, common);
    add_information_commands(app, common);
    add_tunnel_commands(app, common);
    add_profile_commands(app, common);
    add_application_commands(app, common);
    add_resolve_command(app, common);
}

EventHandler printing(Printer& printer) {
    return [&printer](const Event& event) { printer.event(to_json(event)); };
}

void forget(const Event&) {}

CLI::Option* add_profile(CLI::App& command, int32_t& profile) {
    return command.add_option("PROFILE", profile, "Profile id")
        ->type_name("")
        ->required()
        ->check(CLI::Range(1, kLargestId));
}

void StayOption::define(CLI::App& command) {
    command.add_option("--for", seconds, "End after this time; without it, at SIGINT or SIGTERM")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, kThirtyYears));
}

Deadline StayOption::deadline() const {
    return seconds ? in(std::chrono::duration<double>(*seconds)) : Deadline();
}

void TimeoutOption::define(CLI::App& command) {
    command.add_option("--timeout", seconds, "How long to wait for the answer (30)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, kThirtyYears));
}

Deadline TimeoutOption::deadline() const {
    return in(std::chrono::duration<double>(seconds));
}

Event TimeoutOption::await(Session& session, const EventTest& test, const std::string& what) const {
    const std::optional<Event> event = session.await(test, deadline(), forget);
    if (!event) {
        throw Failure("no " + what + (session.interrupted() ? ": interrupted" : " within the time-out"));
    }
    return *event;
}

const char* interface_name(uint32_t interface) {
    return interface == NETCM_IFACE_WIFI ? "wifi" : "pdp";
}

}  // namespace quorvel::netcm
