// What NetworkManager sees of a VPN's service: a small stand-in on the bus, whose tunnel is an interface of
// the test.
#pragma once

#include <cstdint>
#include <string>

#include "networkmanager/StandIn.h"

namespace quorvel::test {

class StandInVpn : private StandIn {
  public:
    // As connections of its type name it, and as the file says that NetworkManager knows it by.
    static constexpr const char* kName = "org.freedesktop.NetworkManager.standin";
    static constexpr const char* kAddress = "10.99.0.7";
    static constexpr const char* kNameServer = "10.99.0.1";

    explicit StandInVpn(std::string tunnel);
    ~StandInVpn();

    // Each login is refused from now on.
    void refuse();
    // The other side ends it.
    void hang_up();
    int disconnections() const { return disconnections_; }

  private:
    friend struct VpnObject;

    void come_up();
    void set_state(uint32_t state);

    std::string tunnel_;
    uint32_t state_ = 1;
    bool refuses_ = false;
    std::atomic<int> disconnections_ = 0;
};

}  // namespace quorvel::test
