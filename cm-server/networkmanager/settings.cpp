#include "networkmanager/settings.h"

#include <netinet/in.h>
#include <systemd/sd-id128.h>

#include <array>
#include <bit>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/message.h"

namespace quorvel::cm {
namespace {

constexpr uint32_t kPap = 1;
constexpr uint32_t kChap = 2;
constexpr int32_t kStatic = 1;  // of an address or of name servers

// One setting: a name, and what it has.
class Setting {
  public:
    Setting(sd_bus_message* message, const char* name) : message_(message) {
        open('e', "sa{sv}");
        check_bus(sd_bus_message_append(message_, "s", name), "a setting");
        open('a', "{sv}");
    }
    void end() {
        close();
        close();
    }

    void text(const char* key, std::string_view value) {
        check_bus(sd_bus_message_append(message_, "{sv}", key, "s", std::string(value).c_str()), key);
    }
    // Nothing when the profile says nothing.
    void text_if_any(const char* key, std::string_view value) {
        if (!value.empty())
            text(key, value);
    }
    void flag(const char* key, bool value) {
        check_bus(sd_bus_message_append(message_, "{sv}", key, "b", static_cast<int>(value)), key);
    }
    void number(const char* key, uint32_t value) {
        check_bus(sd_bus_message_append(message_, "{sv}", key, "u", value), key);
    }
    void numbers(const char* key, const std::vector<uint32_t>& values) {
        entry(key, "au", [&] {
            check_bus(
                sd_bus_message_append_array(message_, 'u', values.data(), values.size() * sizeof(uint32_t)),
                key);
        });
    }
    void bytes(const char* key, std::string_view value) {
        entry(key, "ay", [&] {
            check_bus(sd_bus_message_append_array(message_, 'y', value.data(), value.size()), key);
        });
    }
    void one_text(const char* key, const char* value) {
        check_bus(sd_bus_message_append(message_, "{sv}", key, "as", 1, value), key);
    }
    void pair(const char* key, const char* name, const char* value) {
        check_bus(sd_bus_message_append(message_, "{sv}", key, "a{ss}", 1, name, value), key);
    }
    void address(const char* key, const std::string& address, uint32_t prefix) {
        check_bus(sd_bus_message_append(message_, "{sv}", key, "aa{sv}", 1, 2, "address", "s",
                                        address.c_str(), "prefix", "u", prefix),
                  key);
    }

  private:
    void open(char type, const char* contents) {
        check_bus(sd_bus_message_open_container(message_, type, contents), "a setting");
    }
    void close() { check_bus(sd_bus_message_close_container(message_), "a setting"); }
    void entry(const char* key, const char* type, const std::function<void()>& value) {
        open('e', "sv");
        check_bus(sd_bus_message_append(message_, "s", key), key);
        open('v', type);
        value();
        close();
        close();
    }

    sd_bus_message* message_;
};

std::string new_uuid() {
    sd_id128_t id{};
    check_bus(sd_id128_randomize(&id), "a random number");
    std::array<char, 37> text{};
    snprintf(text.data(), text.size(), SD_ID128_UUID_FORMAT_STR, SD_ID128_FORMAT_VAL(id));
    return text.data();
}

struct FixedAddress {
    uint32_t address = 0;  // none: whatever the network gives
    uint32_t mask = 0;
    uint32_t gateway = 0;
};

void append_ip(sd_bus_message* message, const FixedAddress& fixed, const Network& network) {
    Setting ip(message, "ipv4");
    ip.text("method", fixed.address != 0 ? "manual" : "auto");
    if (fixed.address != 0) {
        const int prefix = fixed.mask != 0 ? std::popcount(fixed.mask) : 32;
        ip.address("address-data", to_text(in_addr{fixed.address}), static_cast<uint32_t>(prefix));
        if (fixed.gateway != 0)
            ip.text("gateway", to_text(in_addr{fixed.gateway}));
    }
    if (!network.dns.empty()) {
        std::vector<uint32_t> servers;
        for (const in_addr server : network.dns)
            servers.push_back(server.s_addr);
        ip.numbers("dns", servers);
        ip.flag("ignore-auto-dns", true);
    }
    ip.end();
    Setting other(message, "ipv6");
    other.text("method", "disabled");
    other.end();
}

// All ways to say who one is are allowed but those that the profile does not have.
void append_authentication(sd_bus_message* message, uint32_t type) {
    if (type == 0)
        return;
    if (type != kPap && type != kChap)
        throw NotSupported("authentication of type " + std::to_string(type) + " is not known");
    Setting ppp(message, "ppp");
    ppp.flag(type == kPap ? "refuse-chap" : "refuse-pap", true);
    for (const char* other : {"refuse-eap", "refuse-mschap", "refuse-mschapv2"})
        ppp.flag(other, true);
    ppp.end();
}

void append_packet_data(sd_bus_message* message, const NetPMPdpProfInfo& pdp, const Network& network) {
    Setting gsm(message, "gsm");
    gsm.text("apn", field_text(pdp.Apn));
    gsm.text_if_any("username", field_text(pdp.AuthInfo.UserName));
    gsm.text_if_any("password", field_text(pdp.AuthInfo.Password));
    gsm.end();
    append_authentication(message, pdp.AuthInfo.AuthType);
    FixedAddress fixed;
    if (pdp.BStaticIpAddr != 0)
        fixed = {pdp.IpAddr.Ipv4, pdp.NetMask.Ipv4, pdp.DefGateway.Ipv4};
    append_ip(message, fixed, network);
}

void append_wep(sd_bus_message* message, const NetPMWlanProfSecWep& wep, bool shared) {
    if (wep.wepKeyIndex > 3)
        throw NotSupported("there is no fifth WEP key");
    Setting security(message, "802-11-wireless-security");
    security.text("key-mgmt", "none");
    security.text("auth-alg", shared ? "shared" : "open");
    security.number("wep-tx-keyidx", wep.wepKeyIndex);
    constexpr std::array kKeys{"wep-key0", "wep-key1", "wep-key2", "wep-key3"};
    for (size_t i = 0; i < kKeys.size(); ++i)
        security.text_if_any(kKeys[i], field_text(wep.wepKey[i]));
    security.end();
}

// Paths are bytes here, with a zero at the end.
void append_file(Setting& setting, const char* key, std::string_view path) {
    if (!path.empty())
        setting.bytes(key, "file://" + std::string(path) + '\0');
}

void append_eap(sd_bus_message* message, const NetPMWlanProfSecEap& eap) {
    constexpr std::array kMethods{"peap", "tls", "ttls"};
    if (eap.wlan_eap_type < 0 || static_cast<size_t>(eap.wlan_eap_type) >= kMethods.size())
        throw NotSupported("EAP of type " + std::to_string(eap.wlan_eap_type) +
                           " is not known; 0 is PEAP, 1 TLS, 2 TTLS");
    const bool tls = eap.wlan_eap_type == 1;
    Setting security(message, "802-11-wireless-security");
    security.text("key-mgmt", "wpa-eap");
    security.end();
    Setting who(message, "802-1x");
    who.one_text("eap", kMethods.at(static_cast<size_t>(eap.wlan_eap_type)));
    who.text_if_any("identity", field_text(eap.username));
    append_file(who, "ca-cert", field_text(eap.ca_cert_filename));
    if (tls) {
        append_file(who, "client-cert", field_text(eap.client_cert_filename));
        append_file(who, "private-key", field_text(eap.private_key_filename));
        who.text_if_any("private-key-password", field_text(eap.private_key_passwd));
    } else {
        who.text("phase2-auth", "mschapv2");
        who.text_if_any("password", field_text(eap.password));
    }
    who.end();
}

void append_wireless_security(sd_bus_message* message, const NetPMWlanProfSecurity& security) {
    switch (security.sec_mode) {
        case 1:
            return;
        case 2:
        case 3:
            return append_wep(message, security.form.wep, security.sec_mode == 3);
        case 4:
        case 6:
        case 8: {
            Setting psk(message, "802-11-wireless-security");
            psk.text("key-mgmt", "wpa-psk");
            psk.text("psk", field_text(security.form.psk.pskKey));
            return psk.end();
        }
        case 5:
        case 7:
        case 9:
            return append_eap(message, security.form.eap);
        default:
            throw NotSupported("the security mode " + std::to_string(security.sec_mode) + " is not known");
    }
}

void append_wireless(sd_bus_message* message, const NetPMWlanProfInfo& wlan, const Network& network) {
    Setting wireless(message, "802-11-wireless");
    wireless.bytes("ssid", field_text(wlan.essid));
    wireless.text("mode", "infrastructure");
    wireless.end();
    append_wireless_security(message, wlan.security);
    const NetPMWlanProfNetInfo& net = wlan.net_info;
    FixedAddress fixed;
    if (net.IpConfigType == kStatic)
        fixed = {net.ip_addr.Ipv4, net.net_mask.Ipv4, net.def_gateway.Ipv4};
    append_ip(message, fixed, network);
}

}  // namespace

void append_settings(sd_bus_message* message, const NetPMProfile& profile, const Network& network) {
    const bool pdp = profile.ProfileType == NETPM_PROFILE_PDP;
    check_bus(sd_bus_message_open_container(message, 'a', "{sa{sv}}"), "settings");
    Setting connection(message, "connection");
    // Its name may be of any bytes, which the message bus does not carry.
    connection.text("id", "Quorvel profile " + std::to_string(profile.ProfileId));
    connection.text("uuid", new_uuid());
    connection.text("type", pdp ? "gsm" : "802-11-wireless");
    connection.flag("autoconnect", false);
    connection.text_if_any("interface-name", network.interface);
    connection.end();
    Setting mark(message, "user");
    mark.pair("data", kOurMark, std::to_string(profile.ProfileId).c_str());
    mark.end();
    pdp ? append_packet_data(message, profile.PdpProfInfo, network)
        : append_wireless(message, profile.WlanProfInfo, network);
    check_bus(sd_bus_message_close_container(message), "settings");
}

}  // namespace quorvel::cm
