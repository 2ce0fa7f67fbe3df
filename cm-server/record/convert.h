// "cm-server convert": a record in another format.
#pragma once

#include <CLI/CLI.hpp>

namespace quorvel::cm {

void add_convert(CLI::App& app);

}  // namespace quorvel::cm
