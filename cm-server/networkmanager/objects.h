// What NetworkManager has: connections, those that are active, and devices.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>
#include <vector>

#include "networkmanager/bus.h"

namespace quorvel::cm {

// Of an active connection (NMActiveConnectionState), and of a device (NMDeviceState, NMDeviceType).
inline constexpr uint32_t kActivating = 1;
inline constexpr uint32_t kActivated = 2;
inline constexpr uint32_t kDeviceUnmanaged = 10;
inline constexpr uint32_t kDeviceDisconnected = 30;
inline constexpr uint32_t kDeviceActivated = 100;
inline constexpr uint32_t kWifiDevice = 2;
inline constexpr uint32_t kModemDevice = 8;

// A connection that NetworkManager knows how to make.
struct StoredConnection {
    std::string path;
    std::string id;
    std::string uuid;
    std::string type;  // of the settings, such as "gsm"
    std::string essid;
    bool made_by_us = false;

    bool is_called(const std::string& name) const { return id == name || uuid == name; }
};

// One that is active, or was.
struct ActiveConnection {
    std::string path;
    std::string connection;  // the path of the stored one
    uint32_t state = 0;
    std::vector<std::string> devices;  // their paths
    std::string addressing;            // the path of its addresses
    bool vpn = false;

    bool lives() const { return state == kActivating || state == kActivated; }
};

struct Device {
    std::string path;
    std::string interface;  // that it is called by
    std::string carrier;    // that has the addresses; empty before it has any
    std::string modem;      // ModemManager's path, where it is one
    uint32_t type = 0;
    uint32_t state = 0;
    std::vector<std::string> connections;  // the paths of those that it could have

    const std::string& ip_interface() const { return carrier.empty() ? interface : carrier; }
};

// Each reads what NetworkManager has answered; the path is whoever's who has asked. Throws BusError.
StoredConnection read_stored_connection(sd_bus_message* answer);
ActiveConnection read_active_connection(sd_bus_message* answer);
Device read_device(sd_bus_message* answer);

}  // namespace quorvel::cm
