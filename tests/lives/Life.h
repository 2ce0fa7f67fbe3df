// One life: a server, threads that use the library, and a model of what they may be told.
#pragma once

#include <cstdint>

#include "Troubles.h"

namespace quorvel::lives {

// Lives it, and returns when everything in it was as it should be. Otherwise the process ends.
void live(uint64_t seed, Troubles troubles);

}  // namespace quorvel::lives
