// What the command line says of a record.
#pragma once

#include <CLI/CLI.hpp>

#include "record/plan.h"

namespace quorvel::cm {

// --record, --record-size and --record-secrets. The plan has to live as long as the command.
void add_record_options(CLI::App& command, RecordPlan& plan, const char* what);

}  // namespace quorvel::cm
