// What a user may take of the server, so that the others are served as well.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>

#include "holdings.h"

namespace quorvel::cm {

struct Limits {
    // Of each user. Root and the server's own user are trusted with everything.
    size_t connections = 288;
    size_t registrations = 128;
    size_t unregistered = 32;
    std::chrono::milliseconds unregistered_time{2000};
    size_t profiles = 256;
    // How much may wait in the server for the clients of a user, and of all of them, whoever they are.
    MemoryLimits memory;
};

bool has_quota(uid_t user);

}  // namespace quorvel::cm
