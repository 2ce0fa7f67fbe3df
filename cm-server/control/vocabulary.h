// The operator's commands with what each of them takes: for the server, and for a scenario before it runs.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace quorvel::cm {

struct CommandFault {
    std::string key;  // empty: of the whole command
    std::string what;
};

// What is wrong with a command, as far as it can be told without the clients and calls that are there.
std::optional<CommandFault> fault_in(const nlohmann::json& command);

// The command with numbers for names of statuses, reasons and network states, and milliseconds for times with
// a unit. Throws ControlError when there is a fault in it: whoever executes a command is given none of those.
nlohmann::json checked_command(const nlohmann::json& given);

}  // namespace quorvel::cm
