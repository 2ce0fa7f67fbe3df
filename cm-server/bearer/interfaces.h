// The network interfaces of this machine, as they are now.
#pragma once

#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quorvel::cm {

// Received bytes, sent bytes, received packets, sent packets, receive errors, send errors.
using Counters = std::array<uint32_t, 6>;

struct InterfaceState {
    bool running = false;  // administratively up, and with a carrier
    std::vector<in_addr> addresses;
    Counters counters{};
};

std::map<std::string, InterfaceState> all_interfaces();

// Nothing when there is no such interface.
std::optional<InterfaceState> interface_state(const std::string& name);

}  // namespace quorvel::cm
