// NetworkManager played on the message bus, as far as the server speaks to it, for want of a radio: one Wi-Fi
// device, and access points that do what the test orders.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "networkmanager/StandIn.h"

namespace quorvel::test {

class StandInWireless : private StandIn {
  public:
    // The device is an interface of the test, and has this address when it is up.
    explicit StandInWireless(std::string interface, std::string address = "10.70.0.42");
    ~StandInWireless();

    // Each connection fails from now on, for this reason (NMDeviceStateReason).
    void refuse(uint32_t device_reason);
    // The device is in this state (NMDeviceState), with the connection still on it.
    void move_to(uint32_t device_state, uint32_t device_reason);
    // The connection that is active ends for this reason.
    void fail(uint32_t device_reason);

    // What the last connection was made with, such as "802-11-wireless.ssid".
    std::map<std::string, std::string> settings();
    // How many connections there are, and are active.
    int stored() const { return stored_; }
    int active() const { return active_; }

  private:
    friend struct WirelessObject;

    void set_device(uint32_t state, uint32_t reason);
    void set_active(uint32_t state, uint32_t reason);
    void end_active(uint32_t device_reason);

    std::string interface_;
    std::string address_;
    std::map<std::string, std::string> settings_;
    uint32_t refusal_ = 0;
    uint32_t device_state_;
    uint32_t active_state_ = 0;
    std::atomic<int> stored_ = 0;
    std::atomic<int> active_ = 0;
};

}  // namespace quorvel::test
