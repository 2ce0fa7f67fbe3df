// How every program of the house takes its command line.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace quorvel::command_line {

constexpr int kDone = 0;
constexpr int kNotDone = 1;
constexpr int kWrongUsage = 2;

// Reads the command line, which runs what it asks for, and then `rest`, if there is any. A wrong command line
// is explained on standard error under the program's name, as is what else is thrown. `--complete WORD...`
// prints what may follow, for shells. Gives the exit status.
int run(CLI::App& app, int argc, char** argv, const std::function<int()>& rest = {});

}  // namespace quorvel::command_line
