// The network interfaces of this machine, as they are now.
#pragma once

#include <netinet/in.h>

#include <optional>
#include <string>

namespace quorvel::cm {

struct InterfaceState {
    bool running = false;  // administratively up, and with a carrier
    std::optional<in_addr> address;
};

// Nothing when there is no such interface.
std::optional<InterfaceState> interface_state(const std::string& name);

}  // namespace quorvel::cm
