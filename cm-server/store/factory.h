// A profile of the configuration: what restoring the store brings back.
#pragma once

#include <string>

#include "quorvel/NetPM.h"

namespace quorvel::cm {

struct FactoryProfile {
    NetPMProfile record{};
    std::string interface;  // of a packet-data profile; empty: the network's
    bool is_default = false;
};

}  // namespace quorvel::cm
