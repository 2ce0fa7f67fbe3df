// Times with their units on a command line: "90", "90s", "1.5h", "500ms".
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace quorvel::command_line {

// In seconds, which are meant without a unit; nothing for what is no time, or more than thirty years.
std::optional<double> seconds_from(const std::string& text);

// Puts the seconds in the place of an option's text, for `transform`.
CLI::Validator duration();

}  // namespace quorvel::command_line
