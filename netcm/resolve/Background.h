// Many lookups at once: the answers as they arrive.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Answer.h"
#include "Lookup.h"

namespace quorvel::netcm {

struct Progress {
    size_t done;
    size_t all;
};

// Called on the thread that has asked.
using OnAnswer = std::function<void(const Answer&, Progress)>;

// Both give every name one answer. An interrupt of the inbox ends them, and leaves what is under way.

// By the library's own background lookups over a profile's connection, as many at a time as it takes.
// `servers` are the profile's.
void look_up_in_background(int32_t profile, const NameServers& servers, const std::vector<std::string>& names,
                           const OnAnswer& answered);

// On threads of netcm's own, from servers that need not be a profile's.
void look_up_on_own_threads(const NameServers& servers, const std::vector<std::string>& names,
                            const OnAnswer& answered);

}  // namespace quorvel::netcm
