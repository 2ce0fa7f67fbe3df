// How the networks are that NetworkManager's devices lead to.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "bearer/network_status.h"
#include "config/config.h"
#include "networkmanager/manager.h"

namespace quorvel::cm {

// Knows the devices and the connections, and asks again only about what has changed.
class DeviceWatch {
  public:
    // `changed` is told that a status may be another one.
    DeviceWatch(Manager& manager, const Interfaces& interfaces, std::function<void()> changed)
        : manager_(manager), interfaces_(interfaces), changed_(std::move(changed)) {}

    void take_in(std::vector<StoredConnection> connections);
    // There may be other devices. Throws BusError, as the next one does.
    void list_devices();
    // One of the devices may be another one than before; any other path is nobody's.
    void look_at(const std::string& path);
    // A modem has lost its network, or has found one again.
    void on_modem(const std::string& path, bool registered);
    // NetworkManager has gone.
    void clear();

    // The best of the devices that could carry a connection to the network.
    NetworkStatus status(const Network& network) const;

  private:
    void look();
    NetworkStatus status_of_device(const Device& device) const;

    Manager& manager_;
    const Interfaces& interfaces_;
    std::function<void()> changed_;
    std::vector<StoredConnection> connections_;
    std::map<std::string, Device> devices_;  // by their paths
    std::set<std::string> searching_;        // modems
    std::set<std::string> to_look_at_;
    bool listing_ = false;
    bool looking_ = false;
    uint64_t life_ = 0;  // another one after NetworkManager has gone, so that a late answer is nobody's
};

}  // namespace quorvel::cm
