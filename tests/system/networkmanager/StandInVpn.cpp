#include "networkmanager/StandInVpn.h"

#include <arpa/inet.h>

#include <utility>

namespace quorvel::test {
namespace {

constexpr const char* kPath = "/org/freedesktop/NetworkManager/VPN/Plugin";
constexpr const char* kInterface = "org.freedesktop.NetworkManager.VPN.Plugin";

// States of the service, and why it has failed.
constexpr uint32_t kStarting = 3;
constexpr uint32_t kStarted = 4;
constexpr uint32_t kStopped = 6;
constexpr uint32_t kLoginFailed = 0;

uint32_t number(const char* address) {
    return inet_addr(address);
}

}  // namespace

// What is called by the bus.
struct VpnObject {
    static StandInVpn& of(void* vpn) { return *static_cast<StandInVpn*>(vpn); }

    static int state(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* vpn,
                     sd_bus_error*) {
        return sd_bus_message_append(reply, "u", of(vpn).state_);
    }

    // It needs none.
    static int need_secrets(sd_bus_message* call, void*, sd_bus_error*) {
        return sd_bus_reply_method_return(call, "s", "");
    }

    static int connect(sd_bus_message* call, void* vpn, sd_bus_error*) {
        StandInVpn& self = of(vpn);
        self.set_state(kStarting);
        self.later([&self] { self.come_up(); });
        return sd_bus_reply_method_return(call, "");
    }

    static int disconnect(sd_bus_message* call, void* vpn, sd_bus_error*) {
        StandInVpn& self = of(vpn);
        ++self.disconnections_;
        self.set_state(kStopped);
        return sd_bus_reply_method_return(call, "");
    }
};

namespace {

constexpr uint64_t kOpen = SD_BUS_VTABLE_UNPRIVILEGED;

const sd_bus_vtable kTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("State", "u", VpnObject::state, 0, 0),
    SD_BUS_METHOD("NeedSecrets", "a{sa{sv}}", "s", VpnObject::need_secrets, kOpen),
    SD_BUS_METHOD("Connect", "a{sa{sv}}", "", VpnObject::connect, kOpen),
    SD_BUS_METHOD("ConnectInteractive", "a{sa{sv}}a{sv}", "", VpnObject::connect, kOpen),
    SD_BUS_METHOD("Disconnect", "", "", VpnObject::disconnect, kOpen),
    SD_BUS_SIGNAL("StateChanged", "u", 0),
    SD_BUS_SIGNAL("Config", "a{sv}", 0),
    SD_BUS_SIGNAL("Ip4Config", "a{sv}", 0),
    SD_BUS_SIGNAL("Failure", "u", 0),
    SD_BUS_VTABLE_END};

}  // namespace

StandInVpn::StandInVpn(std::string tunnel) : tunnel_(std::move(tunnel)) {
    add(kPath, kInterface, kTable, this);
    begin(kName);
}

StandInVpn::~StandInVpn() {
    end();
}

void StandInVpn::refuse() {
    later([this] { refuses_ = true; });
}

void StandInVpn::hang_up() {
    later([this] { set_state(kStopped); });
}

void StandInVpn::come_up() {
    if (refuses_) {
        sd_bus_emit_signal(bus_, kPath, kInterface, "Failure", "u", kLoginFailed);
        return set_state(kStopped);
    }
    sd_bus_emit_signal(bus_, kPath, kInterface, "Config", "a{sv}", 4, "tundev", "s", tunnel_.c_str(),
                       "gateway", "u", number("10.70.0.1"), "has-ip4", "b", 1, "has-ip6", "b", 0);
    sd_bus_emit_signal(bus_, kPath, kInterface, "Ip4Config", "a{sv}", 4, "address", "u", number(kAddress),
                       "prefix", "u", 24U, "dns", "au", 1, number(kNameServer), "never-default", "b", 1);
    set_state(kStarted);
}

void StandInVpn::set_state(uint32_t state) {
    state_ = state;
    sd_bus_emit_signal(bus_, kPath, kInterface, "StateChanged", "u", state);
}

}  // namespace quorvel::test
