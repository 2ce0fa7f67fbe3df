// "cm-server ctl": the operator's commands, from the shell.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>

namespace quorvel::cm {

// Adds the subcommand with all its commands. The chosen one's callback runs while the command line is parsed;
// it reads the path of the server's socket from `socket`, and throws CLI::RuntimeError when the server
// refuses.
void add_ctl(CLI::App& app, const std::string& socket);

}  // namespace quorvel::cm
