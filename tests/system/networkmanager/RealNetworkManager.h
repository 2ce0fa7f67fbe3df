// A real NetworkManager, with a message bus of its own, in the network of the test: a device eth9 whose other
// end, in a network behind it, gives addresses and knows names.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "support/Program.h"

namespace quorvel::test {

// Whether it is installed.
bool has_network_manager();

// Its paths below /run and /sys hide those of the machine, which the test's namespaces make its own.
class RealNetworkManager {
  public:
    // Gives eth9 the connection "wired", which takes an address by DHCP, and waits until it could be used.
    RealNetworkManager();
    ~RealNetworkManager();

    // What NetworkManager's own command prints; it must succeed.
    static std::string nmcli(std::string_view arguments);
    static bool is_active(const std::string& connection);
    // What is run in the network at the other end.
    void behind(std::string_view command) const;
    // No address is given any more.
    void stop_dhcp();

    void kill();
    // As it was started at first.
    void start();

  private:
    void start_behind();

    std::unique_ptr<Program> behind_;
    std::unique_ptr<Program> names_;
    std::unique_ptr<Program> bus_;
    std::unique_ptr<Program> manager_;
};

}  // namespace quorvel::test
