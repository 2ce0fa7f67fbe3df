// "cm-server monitor": shows what passes between a running server and its clients.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace quorvel::cm {

void add_monitor(CLI::App& app, const std::string& socket);

}  // namespace quorvel::cm
