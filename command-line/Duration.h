// Times with their units on a command line: "90", "90s", "1.5h", "500ms".
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <optional>
#include <string>

namespace quorvel::command_line {

// In seconds, which are meant without a unit; nothing for what is no time, or more than thirty years.
std::optional<double> seconds_from(const std::string& text);

// The same where milliseconds are meant without a unit.
std::optional<std::chrono::milliseconds> milliseconds_from(const std::string& text);

// Puts the seconds, or the milliseconds, in the place of an option's text, for `transform`.
CLI::Validator duration();
CLI::Validator duration_in_milliseconds();

// What a time looks like, for messages.
inline constexpr const char* kTimesLookLike = "a number with ms, s, m, h or d: 90s, 1.5h";

}  // namespace quorvel::command_line
