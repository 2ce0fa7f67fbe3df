#include "Command.h"

#include <iostream>

#include "Status.h"
#include "TimeLimit.h"
#include "command-line/Duration.h"

namespace quorvel::netcm {

Printer CommonOptions::printer() const {
    return {std::cout, json ? Format::kJson : Format::kText};
}

void describe(CLI::App& app, CommonOptions& common) {
    app.name("netcm");
    app.description("Connections, profiles and names of the connection manager.");
    app.add_flag("--json", common.json, "Print JSON: one document, or one line per event");
    app.add_option("--timeout", common.timeout,
                   "How long the CM server may take to answer, such as 500ms (30s)")
        ->type_name("TIME")
        ->transform(command_line::duration());
    app.require_subcommand(1);
    app.fallthrough();
    add_connection_commands(app, common);
    add_control_commands(app, common);
    add_information_commands(app, common);
    add_top_command(app, common);
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
    command
        .add_option("--for", seconds,
                    "End after this time, such as 90s or 1h; without it, at SIGINT or SIGTERM")
        ->type_name("TIME")
        ->transform(command_line::duration());
}

Deadline StayOption::deadline() const {
    return seconds ? in(std::chrono::duration<double>(*seconds)) : Deadline();
}

void limit_time(const CommonOptions& common) {
    if (common.timeout) {
        start_time_limit(*common.timeout);
    }
}

Deadline answer_deadline(const CommonOptions& common) {
    constexpr double kOtherwise = 30;
    return in(std::chrono::duration<double>(common.timeout.value_or(kOtherwise)));
}

Event await(const CommonOptions& common, Session& session, const EventTest& test, const std::string& what) {
    const std::optional<Event> event = session.await(test, answer_deadline(common), forget);
    if (!event) {
        throw Failure("no " + what + (session.interrupted() ? ": interrupted" : " within the time-out"));
    }
    return *event;
}

Event open(const CommonOptions& common, Session& session, int32_t profile) {
    const std::optional<Event> opened = session.open(profile, answer_deadline(common), forget);
    if (!opened) {
        throw Failure(std::string("the connection is not up ") +
                      (session.interrupted() ? "yet: interrupted" : "within the time-out"));
    }
    return *opened;
}

CLI::Validator one_of(NamedNumbers names) {
    return {[names = std::move(names)](std::string& text) -> std::string {
                std::string all;
                for (const auto& [name, number] : names) {
                    if (text == name || text == std::to_string(number)) {
                        text = std::to_string(number);
                        return "";
                    }
                    all += (all.empty() ? "" : ", ") + name;
                }
                return "\"" + text + "\" is none of " + all;
            },
            ""};
}

const char* interface_name(uint32_t interface) {
    return interface == NETCM_IFACE_WIFI ? "wifi" : "pdp";
}

}  // namespace quorvel::netcm
