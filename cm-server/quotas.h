// What a user may take of the server, so that the others are served as well.
#pragma once

#include <chrono>
#include <cstddef>

#include "holdings.h"

namespace quorvel::cm {

struct Limits {
    // How much may wait in the server for the clients of a user, and of all of them.
    MemoryLimits memory;
};

}  // namespace quorvel::cm
