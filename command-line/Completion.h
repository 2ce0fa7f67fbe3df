// What the shell offers: the words that may follow, taken from the program's own description.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace quorvel::command_line {

// The words that may stand at the end of a command line whose last word is begun.
std::vector<std::string> completions(const CLI::App& app, const std::vector<std::string>& words);

// The commands and options that may stand directly behind this command.
std::vector<std::string> commands_of(const CLI::App& app);
std::vector<std::string> options_of(const CLI::App& app);

}  // namespace quorvel::command_line
