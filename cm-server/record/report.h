// "cm-server report": a record as a page to look at.
#pragma once

#include <CLI/CLI.hpp>

namespace quorvel::cm {

void add_report(CLI::App& app);

}  // namespace quorvel::cm
