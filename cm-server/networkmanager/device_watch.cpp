#include "networkmanager/device_watch.h"

#include <algorithm>
#include <array>
#include <utility>

#include "log.h"

namespace quorvel::cm {
namespace {

// What is there only while it is active, such as a tunnel, can be brought up without a device of its own.
bool needs_device(const StoredConnection& connection) {
    constexpr std::array kOfHardware{"802-3-ethernet",
                                     "802-11-wireless",
                                     "802-11-olpc-mesh",
                                     "bluetooth",
                                     "cdma",
                                     "gsm",
                                     "infiniband",
                                     "wimax",
                                     "wpan",
                                     "pppoe",
                                     "adsl"};
    return std::ranges::find(kOfHardware, connection.type) != kOfHardware.end();
}

bool is_on(const Device& device, const Network& network) {
    return network.interface.empty() || network.interface == device.interface ||
           network.interface == device.carrier;
}

}  // namespace

void DeviceWatch::take_in(std::vector<StoredConnection> connections) {
    connections_ = std::move(connections);
    changed_();
}

void DeviceWatch::list_devices() {
    manager_.list_devices([this, life = life_](const std::vector<Device>& devices, const std::string& error) {
        if (life != life_)
            return;
        listing_ = false;
        if (!error.empty())
            return log::debug("NetworkManager's devices are not known: ", error);
        devices_.clear();
        for (const Device& device : devices)
            devices_.emplace(device.path, device);
        changed_();
        std::erase_if(to_look_at_, [this](const std::string& path) { return !devices_.contains(path); });
        look();
    });
    listing_ = true;
}

void DeviceWatch::look_at(const std::string& path) {
    if (!listing_ && !devices_.contains(path))
        return;
    to_look_at_.insert(path);
    look();
}

// One look at a time, however many changes are told.
void DeviceWatch::look() {
    if (listing_ || looking_ || to_look_at_.empty())
        return;
    const std::vector<std::string> paths(to_look_at_.begin(), to_look_at_.end());
    manager_.list_devices(paths,
                          [=, this, life = life_](const std::vector<Device>& devices, const std::string&) {
                              if (life != life_)
                                  return;
                              looking_ = false;
                              // What has gone meanwhile is not among them.
                              for (const std::string& path : paths)
                                  devices_.erase(path);
                              for (const Device& device : devices)
                                  devices_.emplace(device.path, device);
                              changed_();
                              look();
                          });
    to_look_at_.clear();
    looking_ = true;
}

void DeviceWatch::on_modem(const std::string& path, bool registered) {
    if (registered)
        searching_.erase(path);
    else
        searching_.insert(path);
    changed_();
}

void DeviceWatch::clear() {
    ++life_;
    listing_ = false;
    looking_ = false;
    connections_.clear();
    devices_.clear();
    searching_.clear();
    to_look_at_.clear();
    changed_();
}

NetworkStatus DeviceWatch::status_of_device(const Device& device) const {
    if (device.state < kDeviceDisconnected || searching_.contains(device.modem))
        return NetworkStatus::kDown;
    // Whether it has a carrier the kernel knows sooner.
    return device.state == kDeviceActivated ? status_of(interfaces_.find(device.ip_interface()))
                                            : NetworkStatus::kNoAddress;
}

NetworkStatus DeviceWatch::status(const Network& network) const {
    NetworkStatus best = NetworkStatus::kAbsent;
    std::string connection;
    if (const std::string& name = network.managed->connection; !name.empty()) {
        const auto found = std::ranges::find_if(
            connections_, [&](const StoredConnection& stored) { return stored.is_called(name); });
        if (found == connections_.end())
            return best;
        connection = found->path;
        best = needs_device(*found) ? NetworkStatus::kDown : NetworkStatus::kNoAddress;
    }
    const uint32_t type = network.kind == NETCM_IFACE_PDP ? kModemDevice : kWifiDevice;
    for (const auto& [path, device] : devices_) {
        const bool leads_there = connection.empty() ? device.type == type
                                                    : std::ranges::find(device.connections, connection) !=
                                                          device.connections.end();
        if (leads_there && is_on(device, network))
            best = std::max(best, status_of_device(device));
    }
    return best;
}

}  // namespace quorvel::cm
