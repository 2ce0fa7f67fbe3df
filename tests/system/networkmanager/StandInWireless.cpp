#include "networkmanager/StandInWireless.h"

#include <string_view>
#include <utility>

namespace quorvel::test {
namespace {

constexpr const char* kName = "org.freedesktop.NetworkManager";
constexpr const char* kManager = "/org/freedesktop/NetworkManager";
constexpr const char* kSettings = "/org/freedesktop/NetworkManager/Settings";
constexpr const char* kConnection = "/org/freedesktop/NetworkManager/Settings/1";
constexpr const char* kActive = "/org/freedesktop/NetworkManager/ActiveConnection/1";
constexpr const char* kDevice = "/org/freedesktop/NetworkManager/Devices/1";
constexpr const char* kAddresses = "/org/freedesktop/NetworkManager/IP4Config/1";
constexpr const char* kSettingsInterface = "org.freedesktop.NetworkManager.Settings";
constexpr const char* kActiveInterface = "org.freedesktop.NetworkManager.Connection.Active";
constexpr const char* kDeviceInterface = "org.freedesktop.NetworkManager.Device";

// States of the device and of the active connection.
constexpr uint32_t kDisconnected = 30;
constexpr uint32_t kConfiguring = 50;
constexpr uint32_t kUp = 100;
constexpr uint32_t kFailed = 120;
constexpr uint32_t kActivating = 1;
constexpr uint32_t kActivated = 2;
constexpr uint32_t kDeactivated = 4;
// Of an active connection that ends by itself, and by a user.
constexpr uint32_t kDeviceDisconnected = 3;
constexpr uint32_t kUserDisconnected = 2;

}  // namespace

// What is called by the bus.
struct WirelessObject {
    static StandInWireless& of(void* wireless) { return *static_cast<StandInWireless*>(wireless); }

    static int paths(sd_bus_message* reply, const char* path, bool there) {
        return there ? sd_bus_message_append(reply, "ao", 1, path) : sd_bus_message_append(reply, "ao", 0);
    }

    static int addresses(sd_bus_message* reply, const char* address) {
        return sd_bus_message_append(reply, "aa{sv}", 1, 1, "address", "s", address);
    }

    static int property(sd_bus*, const char*, const char*, const char* name, sd_bus_message* reply,
                        void* wireless, sd_bus_error*) {
        const StandInWireless& self = of(wireless);
        const std::string_view key = name;
        if (key == "ActiveConnections")
            return paths(reply, kActive, self.active_ > 0);
        if (key == "Connection")
            return sd_bus_message_append(reply, "o", kConnection);
        if (key == "Devices")
            return paths(reply, kDevice, true);
        if (key == "Ip4Config")
            return sd_bus_message_append(reply, "o", self.active_state_ == kActivated ? kAddresses : "/");
        if (key == "Interface" || key == "IpInterface")
            return sd_bus_message_append(reply, "s", self.interface_.c_str());
        if (key == "AvailableConnections")
            return paths(reply, kConnection, self.stored_ > 0);
        if (key == "AddressData")
            return addresses(reply, self.address_.c_str());
        if (key == "NameserverData")
            return addresses(reply, "10.70.0.1");
        return sd_bus_message_append(reply, "u", 2U);  // the device's type: Wi-Fi
    }

    static int state(sd_bus*, const char*, const char* interface, const char*, sd_bus_message* reply,
                     void* wireless, sd_bus_error*) {
        const bool device = std::string_view(interface) == kDeviceInterface;
        return sd_bus_message_append(reply, "u",
                                     device ? of(wireless).device_state_ : of(wireless).active_state_);
    }

    static int list_devices(sd_bus_message* call, void*, sd_bus_error*) {
        return sd_bus_reply_method_return(call, "ao", 1, kDevice);
    }

    static int device_by_interface(sd_bus_message* call, void*, sd_bus_error*) {
        return sd_bus_reply_method_return(call, "o", kDevice);
    }

    static int list_connections(sd_bus_message* call, void* wireless, sd_bus_error*) {
        return of(wireless).stored_ > 0 ? sd_bus_reply_method_return(call, "ao", 1, kConnection)
                                        : sd_bus_reply_method_return(call, "ao", 0);
    }

    static int add_connection(sd_bus_message* call, void* wireless, sd_bus_error*) {
        StandInWireless& self = of(wireless);
        std::map<std::string, std::string> settings;
        must(sd_bus_message_enter_container(call, 'a', "{sa{sv}}"), "settings");
        while (sd_bus_message_enter_container(call, 'e', "sa{sv}") > 0) {
            const char* setting = nullptr;
            must(sd_bus_message_read(call, "s", &setting), "a setting");
            must(sd_bus_message_enter_container(call, 'a', "{sv}"), "a setting");
            while (sd_bus_message_enter_container(call, 'e', "sv") > 0) {
                const char* key = nullptr;
                must(sd_bus_message_read(call, "s", &key), "a key");
                settings[std::string(setting) + "." + key] = read_any(call);
                must(sd_bus_message_exit_container(call), "an entry");
            }
            must(sd_bus_message_exit_container(call), "a setting");
            must(sd_bus_message_exit_container(call), "a setting");
        }
        {
            const std::lock_guard lock(self.mutex_);
            self.settings_ = std::move(settings);
        }
        ++self.stored_;
        sd_bus_emit_signal(self.bus_, kSettings, kSettingsInterface, "NewConnection", "o", kConnection);
        return sd_bus_reply_method_return(call, "oa{sv}", kConnection, 0);
    }

    static int get_settings(sd_bus_message* call, void* wireless, sd_bus_error*) {
        auto settings = of(wireless).settings();
        return sd_bus_reply_method_return(call, "a{sa{sv}}", 1, "connection", 2, "id", "s",
                                          settings["connection.id"].c_str(), "uuid", "s",
                                          settings["connection.uuid"].c_str());
    }

    static int remove_connection(sd_bus_message* call, void* wireless, sd_bus_error*) {
        --of(wireless).stored_;
        return sd_bus_reply_method_return(call, "");
    }

    static int activate(sd_bus_message* call, void* wireless, sd_bus_error*) {
        StandInWireless& self = of(wireless);
        ++self.active_;
        self.set_active(kActivating, 0);
        self.set_device(kConfiguring, 0);
        self.later([&self] {
            if (self.refusal_ != 0)
                return self.end_active(self.refusal_);
            self.set_device(kUp, 0);
            self.set_active(kActivated, 1);
        });
        return sd_bus_reply_method_return(call, "o", kActive);
    }

    static int deactivate(sd_bus_message* call, void* wireless, sd_bus_error* error) {
        StandInWireless& self = of(wireless);
        if (self.active_ == 0)
            return sd_bus_error_set(error, "org.freedesktop.NetworkManager.ConnectionNotActive", "as it is");
        self.set_active(kDeactivated, kUserDisconnected);
        self.set_device(kDisconnected, 39);
        --self.active_;
        return sd_bus_reply_method_return(call, "");
    }
};

namespace {

constexpr uint64_t kChanges = SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE;
constexpr uint64_t kOpen = SD_BUS_VTABLE_UNPRIVILEGED;

#define PROPERTY(name, type) SD_BUS_PROPERTY(name, type, WirelessObject::property, 0, kChanges)
#define METHOD(name, takes, gives, function) \
    SD_BUS_METHOD(name, takes, gives, WirelessObject::function, kOpen)

const sd_bus_vtable kManagerTable[] = {SD_BUS_VTABLE_START(0),
                                       PROPERTY("ActiveConnections", "ao"),
                                       METHOD("GetDevices", "", "ao", list_devices),
                                       METHOD("GetDeviceByIpIface", "s", "o", device_by_interface),
                                       METHOD("ActivateConnection", "ooo", "o", activate),
                                       METHOD("DeactivateConnection", "o", "", deactivate),
                                       SD_BUS_VTABLE_END};

const sd_bus_vtable kSettingsTable[] = {SD_BUS_VTABLE_START(0),
                                        METHOD("ListConnections", "", "ao", list_connections),
                                        METHOD("AddConnection2", "a{sa{sv}}ua{sv}", "oa{sv}", add_connection),
                                        SD_BUS_SIGNAL("NewConnection", "o", 0), SD_BUS_VTABLE_END};

const sd_bus_vtable kConnectionTable[] = {SD_BUS_VTABLE_START(0),
                                          METHOD("GetSettings", "", "a{sa{sv}}", get_settings),
                                          METHOD("Delete", "", "", remove_connection), SD_BUS_VTABLE_END};

const sd_bus_vtable kActiveTable[] = {SD_BUS_VTABLE_START(0),
                                      PROPERTY("Connection", "o"),
                                      PROPERTY("Devices", "ao"),
                                      PROPERTY("Ip4Config", "o"),
                                      SD_BUS_PROPERTY("State", "u", WirelessObject::state, 0, kChanges),
                                      SD_BUS_SIGNAL("StateChanged", "uu", 0),
                                      SD_BUS_VTABLE_END};

const sd_bus_vtable kDeviceTable[] = {SD_BUS_VTABLE_START(0),
                                      PROPERTY("Interface", "s"),
                                      PROPERTY("IpInterface", "s"),
                                      PROPERTY("DeviceType", "u"),
                                      PROPERTY("AvailableConnections", "ao"),
                                      SD_BUS_PROPERTY("State", "u", WirelessObject::state, 0, kChanges),
                                      SD_BUS_SIGNAL("StateChanged", "uuu", 0),
                                      SD_BUS_VTABLE_END};

const sd_bus_vtable kAddressesTable[] = {SD_BUS_VTABLE_START(0), PROPERTY("AddressData", "aa{sv}"),
                                         PROPERTY("NameserverData", "aa{sv}"), SD_BUS_VTABLE_END};

}  // namespace

StandInWireless::StandInWireless(std::string interface, std::string address)
    : interface_(std::move(interface)), address_(std::move(address)), device_state_(kDisconnected) {
    add(kManager, kName, kManagerTable, this);
    add(kSettings, kSettingsInterface, kSettingsTable, this);
    add(kConnection, "org.freedesktop.NetworkManager.Settings.Connection", kConnectionTable, this);
    add(kActive, kActiveInterface, kActiveTable, this);
    add(kDevice, kDeviceInterface, kDeviceTable, this);
    add(kAddresses, "org.freedesktop.NetworkManager.IP4Config", kAddressesTable, this);
    begin(kName);
}

StandInWireless::~StandInWireless() {
    end();
}

void StandInWireless::refuse(uint32_t device_reason) {
    later([this, device_reason] { refusal_ = device_reason; });
}

void StandInWireless::move_to(uint32_t device_state, uint32_t device_reason) {
    later([=, this] { set_device(device_state, device_reason); });
}

void StandInWireless::fail(uint32_t device_reason) {
    later([=, this] { end_active(device_reason); });
}

// As NetworkManager does: the device fails, which ends its connection, and is free again.
void StandInWireless::end_active(uint32_t device_reason) {
    set_device(kFailed, device_reason);
    set_active(kDeactivated, kDeviceDisconnected);
    set_device(kDisconnected, 0);
    --active_;
}

void StandInWireless::set_device(uint32_t state, uint32_t reason) {
    const uint32_t before = std::exchange(device_state_, state);
    sd_bus_emit_signal(bus_, kDevice, kDeviceInterface, "StateChanged", "uuu", state, before, reason);
    sd_bus_emit_properties_changed(bus_, kDevice, kDeviceInterface, "State", nullptr);
}

void StandInWireless::set_active(uint32_t state, uint32_t reason) {
    active_state_ = state;
    sd_bus_emit_signal(bus_, kActive, kActiveInterface, "StateChanged", "uu", state, reason);
    sd_bus_emit_properties_changed(bus_, kActive, kActiveInterface, "State", "Ip4Config", nullptr);
}

std::map<std::string, std::string> StandInWireless::settings() {
    const std::lock_guard lock(mutex_);
    return settings_;
}

}  // namespace quorvel::test
