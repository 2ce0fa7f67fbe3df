// What the shell offers: the words that may follow, taken from the program's own description.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace quorvel::netcm {

// The words that may stand at the end of a command line whose last word is begun.
std::vector<std::string> completions(const CLI::App& app, const std::vector<std::string>& words);

}  // namespace quorvel::netcm
