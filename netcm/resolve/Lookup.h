// Lookups one after the other, over an interface and from the DNS servers given.
#pragma once

#include <string>
#include <vector>

#include "Answer.h"

namespace quorvel::netcm {

struct NameServers {
    std::vector<std::string> addresses;  // asked in this order until one has an answer
    std::string interface;               // none: as the system routes it
};

// Looks into the cache of the process first, and puts into it what it finds.
Answer look_up(const NameServers& servers, const std::string& name);

// The name of a dotted address. The cache has no part in it.
Answer look_up_address(const NameServers& servers, const std::string& address);

}  // namespace quorvel::netcm
