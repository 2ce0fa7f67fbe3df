#include "networkmanager/objects.h"

#include "networkmanager/settings.h"

namespace quorvel::cm {
namespace {

// Whether the dictionary of texts that comes next has our mark.
bool has_our_mark(sd_bus_message* message) {
    bool found = false;
    check_bus(sd_bus_message_enter_container(message, 'v', "a{ss}"), "user data");
    check_bus(sd_bus_message_enter_container(message, 'a', "{ss}"), "user data");
    while (check_bus(sd_bus_message_enter_container(message, 'e', "ss"), "user data") > 0) {
        found |= read_text(message, 's') == kOurMark;
        read_text(message, 's');
        check_bus(sd_bus_message_exit_container(message), "user data");
    }
    check_bus(sd_bus_message_exit_container(message), "user data");
    check_bus(sd_bus_message_exit_container(message), "user data");
    return found;
}

}  // namespace

StoredConnection read_stored_connection(sd_bus_message* answer) {
    StoredConnection found;
    check_bus(sd_bus_message_enter_container(answer, 'a', "{sa{sv}}"), "settings");
    while (check_bus(sd_bus_message_enter_container(answer, 'e', "sa{sv}"), "settings") > 0) {
        const std::string setting = read_text(answer, 's');
        each_entry(answer, [&](std::string_view key, std::string_view type) {
            if (setting == "connection")
                return read_entry(answer, key, type,
                                  {{"id", &found.id}, {"uuid", &found.uuid}, {"type", &found.type}});
            if (setting == "802-11-wireless")
                return read_entry(answer, key, type, {{"ssid", Bytes{found.essid}}});
            const bool user_data = setting == "user" && key == "data" && type == "a{ss}";
            if (user_data)
                found.made_by_us = has_our_mark(answer);
            return user_data;
        });
        check_bus(sd_bus_message_exit_container(answer), "settings");
    }
    check_bus(sd_bus_message_exit_container(answer), "settings");
    return found;
}

ActiveConnection read_active_connection(sd_bus_message* answer) {
    ActiveConnection found;
    read_entries(answer, {{"Connection", &found.connection},
                          {"State", &found.state},
                          {"Devices", &found.devices},
                          {"Ip4Config", &found.addressing},
                          {"Vpn", &found.vpn}});
    return found;
}

Device read_device(sd_bus_message* answer) {
    Device found;
    read_entries(answer, {{"Interface", &found.interface},
                          {"IpInterface", &found.carrier},
                          {"Udi", &found.modem},
                          {"DeviceType", &found.type},
                          {"State", &found.state},
                          {"AvailableConnections", &found.connections}});
    return found;
}

}  // namespace quorvel::cm
