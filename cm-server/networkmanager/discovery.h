// What NetworkManager has, asked for once, by a program that serves nobody.
#pragma once

#include <string>
#include <vector>

#include "networkmanager/objects.h"

namespace quorvel::cm {

struct Discovery {
    std::string why_not;  // empty when NetworkManager has answered
    std::vector<StoredConnection> connections;
    std::vector<Device> devices;
};

// Waits for the answers, some seconds at the most.
Discovery ask_networkmanager();

}  // namespace quorvel::cm
