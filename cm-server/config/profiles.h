// The factory profiles of a configuration file.
#pragma once

#include "config/reader.h"
#include "store/factory.h"

namespace quorvel::cm {

// Faults go to the table.
FactoryProfile read_factory_profile(ConfigTable& table);

}  // namespace quorvel::cm
