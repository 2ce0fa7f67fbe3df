// The limits of a configuration file.
#pragma once

#include "config/reader.h"
#include "quotas.h"

namespace quorvel::cm {

// Faults go to the table; what it does not name is as it is without a file.
Limits read_limits(ConfigTable& table);

}  // namespace quorvel::cm
