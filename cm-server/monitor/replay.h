// "cm-server replay": serves a recorded session again, answer for answer.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace quorvel::cm {

void add_replay(CLI::App& app, const std::string& socket);

}  // namespace quorvel::cm
