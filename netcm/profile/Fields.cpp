#include "Fields.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>

#include "command-line/ProfileWords.h"
#include "common/SecurityForm.h"

namespace quorvel::netcm {
namespace {

constexpr bool kOpen = false;
constexpr bool kSecret = true;

constexpr size_t how_many(size_t together, size_t one) {
    return together / one;
}

#define FIELD_OF(key, part, kind, member, one, secret, help)                                     \
    Field {                                                                                      \
        key, Part::part, Kind::kind, offsetof(NetPMProfile, member), sizeof(NetPMProfile{}.one), \
            how_many(sizeof(NetPMProfile{}.member), sizeof(NetPMProfile{}.one)), secret, help    \
    }
#define FIELD(key, part, kind, member, secret, help) FIELD_OF(key, part, kind, member, member, secret, help)
#define PDP(key, kind, member, help) FIELD(key, kPdp, kind, PdpProfInfo.member, kOpen, help)
#define WLAN(key, kind, member, help) FIELD(key, kWlan, kind, WlanProfInfo.member, kOpen, help)
#define NETWORK(key, kind, member, help) WLAN(key, kind, net_info.member, help)
#define EAP(key, kind, member, secret, help) \
    FIELD(key, kEap, kind, WlanProfInfo.security.form.eap.member, secret, help)
constexpr std::array kFields{
    FIELD("type", kEvery, kType, ProfileType, kOpen, "pdp or wlan; without it what the other fields tell"),
    FIELD("name", kEvery, kText, ProfileName, kOpen, "Display name"),
    FIELD("attributes", kEvery, kUnsigned, ProfileAttr, kOpen, "Attribute bits"),
    FIELD("proxy", kEvery, kProxy, ProxyAddr, kOpen, "Proxy as dotted address, colon, port"),
    PDP("apn", kText, Apn, "Access point name"),
    PDP("primary_profile", kFlag, BPrimaryPdpProfile, "Whether this is a primary profile"),
    PDP("primary_profile_id", kSigned, PrimaryPdpProfileId, "Primary profile of a secondary one"),
    PDP("protocol_type", kUnsigned, ProtocolType, "PDP protocol type"),
    PDP("address_type", kUnsigned, AddrType, "Address type"),
    PDP("static_address", kFlag, BStaticIpAddr, "Whether the address is static"),
    PDP("address", kAddress, IpAddr, "Static address"),
    PDP("static_dns", kFlag, BStaticDnsAddr, "Whether the DNS servers are static; yes when they are given"),
    FIELD_OF("dns", kPdp, kAddress, PdpProfInfo.DnsAddr, PdpProfInfo.DnsAddr[0], kOpen,
             "DNS servers, at most two"),
    PDP("qos_type", kUnsigned, QosInfo.QosType, "Quality of service"),
    PDP("traffic_class", kUnsigned, QosInfo.Qos.QosUmts.TrafficClass, "UMTS traffic class"),
    PDP("auth_type", kUnsigned, AuthInfo.AuthType,
        "Authentication: none (0), pap (1), chap (2), or another number"),
    PDP("user_name", kText, AuthInfo.UserName, "User name"),
    FIELD("password", kPdp, kText, PdpProfInfo.AuthInfo.Password, kSecret, "Password"),
    PDP("gateway", kAddress, DefGateway, "Default gateway"),
    PDP("net_mask", kAddress, NetMask, "Net mask"),
    PDP("home_url", kText, HomeURL, "Home page"),
    PDP("secure_connection", kFlag, BSecureConnection, "Whether the connection is secure"),
    PDP("app_protocol", kUnsigned, AppProtoType, "Application protocol: 1, 2 or 4"),
    PDP("linger_time", kSigned, lingerTime, "Linger time"),
    WLAN("essid", kText, essid, "Network name, at most 32 characters"),
    WLAN("bssid", kText, bssid, "Access point"),
    WLAN("frequency", kSigned, freq, "Channel frequency"),
    WLAN("rate", kSigned, rate, "Bit rate"),
    WLAN("standard", kSigned, standard, "802.11 standard"),
    WLAN("mode", kSigned, wlan_mode, "Network mode"),
    WLAN("security_mode", kSigned, security.sec_mode,
         "1 open; 2, 3 wep; 4, 6, 8 psk; 5, 7, 9 eap; a name means the first"),
    WLAN("encryption_mode", kSigned, security.encrypt_mode, "Encryption mode"),
    FIELD_OF("wep_keys", kWep, kText, WlanProfInfo.security.form.wep.wepKey,
             WlanProfInfo.security.form.wep.wepKey[0], kSecret, "WEP keys, at most four"),
    FIELD("wep_key_index", kWep, kKeyIndex, WlanProfInfo.security.form.wep.wepKeyIndex, kOpen,
          "WEP key in use, 0 to 3"),
    FIELD("psk", kPsk, kText, WlanProfInfo.security.form.psk.pskKey, kSecret, "Pre-shared key"),
    EAP("eap_user_name", kText, username, kOpen, "EAP user name"),
    EAP("eap_password", kText, password, kSecret, "EAP password"),
    EAP("eap_ca_certificate", kText, ca_cert_filename, kOpen, "File of the CA's certificate"),
    EAP("eap_client_certificate", kText, client_cert_filename, kOpen, "File of the client's certificate"),
    EAP("eap_private_key", kText, private_key_filename, kOpen, "File of the private key"),
    EAP("eap_key_password", kText, private_key_passwd, kSecret, "Password of the private key"),
    EAP("eap_type", kSigned, wlan_eap_type, kOpen, "EAP type"),
    NETWORK("address_type", kSigned, addr_type, "Address type"),
    NETWORK("ip_config_type", kSigned, IpConfigType, "How the address is configured"),
    NETWORK("address", kAddress, ip_addr, "Address"),
    NETWORK("gateway", kAddress, def_gateway, "Default gateway"),
    NETWORK("net_mask", kAddress, net_mask, "Net mask"),
    NETWORK("dns_config_type", kSigned, DnsConfigType, "How DNS is configured; 1 when servers are given"),
    FIELD_OF("dns", kWlan, kAddress, WlanProfInfo.net_info.dns_addr, WlanProfInfo.net_info.dns_addr[0], kOpen,
             "DNS servers, at most two"),
    NETWORK("interface", kText, ifname, "Network interface"),
};
#undef EAP
#undef NETWORK
#undef WLAN
#undef PDP
#undef FIELD
#undef FIELD_OF

Part form_of(int32_t security_mode) {
    switch (wire::security_form(security_mode)) {
        case wire::SecurityForm::kWep:
            return Part::kWep;
        case wire::SecurityForm::kPsk:
            return Part::kPsk;
        case wire::SecurityForm::kEap:
            return Part::kEap;
        case wire::SecurityForm::kOpen:
        case wire::SecurityForm::kInvalid:
            break;
    }
    return Part::kWlan;
}

template <class T>
std::optional<T> parse(std::string_view text) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

template <class T>
std::string number_problem(std::string_view text, T most = std::numeric_limits<T>::max()) {
    const std::optional<T> value = parse<T>(text);
    if (value && *value <= most) {
        return "";
    }
    return "is no number from " + std::to_string(std::numeric_limits<T>::min()) + " to " +
           std::to_string(most);
}

std::optional<in_addr> parse_address(std::string_view text) {
    in_addr address{};
    return inet_pton(AF_INET, std::string(text).c_str(), &address) == 1 ? std::optional(address)
                                                                        : std::nullopt;
}

// Leading zeros are allowed: the library takes them away. Letters it would take away as well.
std::string proxy_problem(std::string_view text) {
    const bool digits_only = text.find_first_not_of("0123456789.:") == std::string_view::npos;
    const bool three_dots = std::ranges::count(text.substr(0, text.find(':')), '.') == 3;
    const bool one_colon = std::ranges::count(text, ':') <= 1;
    return text.empty() || (digits_only && three_dots && one_colon)
               ? ""
               : "is no proxy: a dotted address, a colon and a port";
}

std::string text_problem(const Field& field, std::string_view text) {
    if (text.size() >= field.size) {
        return "has " + std::to_string(text.size()) + " bytes, and there is room for " +
               std::to_string(field.size - 1);
    }
    return text.find('\0') == std::string_view::npos ? "" : "holds a zero byte";
}

const std::byte* place_of(const NetPMProfile& profile, const Field& field, size_t index) {
    return reinterpret_cast<const std::byte*>(&profile) + field.offset + index * field.size;
}

template <class T>
T read_value(const NetPMProfile& profile, const Field& field, size_t index) {
    T value{};
    std::memcpy(&value, place_of(profile, field, index), sizeof value);
    return value;
}

}  // namespace

std::span<const Field> profile_fields() {
    return kFields;
}

bool has_field(const NetPMProfile& profile, const Field& field) {
    if (field.part == Part::kEvery) {
        return true;
    }
    if (profile.ProfileType == NETPM_PROFILE_PDP) {
        return field.part == Part::kPdp;
    }
    return field.part == Part::kWlan || field.part == form_of(profile.WlanProfInfo.security.sec_mode);
}

std::string masked(const Field& field, const std::string& text) {
    return field.secret && !text.empty() ? kAsterisks : text;
}

std::string problem_with(const Field& field, std::string_view given) {
    const std::string_view text = command_line::number_for(field.key, given);
    switch (field.kind) {
        case Kind::kType:
            return text == "pdp" || text == "wlan" ? "" : "is neither pdp nor wlan";
        case Kind::kProxy:
            return text_problem(field, text) + proxy_problem(text);
        case Kind::kText:
            return text_problem(field, text);
        case Kind::kAddress:
            return parse_address(text) ? "" : "is no IPv4 address";
        case Kind::kFlag:
            return text == "yes" || text == "no" ? "" : "is neither yes nor no";
        case Kind::kSigned:
            return number_problem<int32_t>(text);
        case Kind::kUnsigned:
            return number_problem<uint32_t>(text);
        case Kind::kKeyIndex:
            return number_problem<uint8_t>(text, 3);
    }
    return "";
}

std::string read_field(const NetPMProfile& profile, const Field& field, size_t index) {
    switch (field.kind) {
        case Kind::kType: {
            const auto type = read_value<uint32_t>(profile, field, index);
            return type == NETPM_PROFILE_PDP    ? "pdp"
                   : type == NETPM_PROFILE_WLAN ? "wlan"
                                                : std::to_string(type);
        }
        case Kind::kText:
        case Kind::kProxy: {
            const auto text = reinterpret_cast<const char*>(place_of(profile, field, index));
            return {text, strnlen(text, field.size)};
        }
        case Kind::kAddress: {
            const in_addr address{read_value<uint32_t>(profile, field, index)};
            std::array<char, INET_ADDRSTRLEN> text{};
            return inet_ntop(AF_INET, &address, text.data(), text.size());
        }
        case Kind::kFlag:
            return read_value<uint16_t>(profile, field, index) != 0 ? "yes" : "no";
        case Kind::kSigned:
            return std::to_string(read_value<int32_t>(profile, field, index));
        case Kind::kUnsigned:
            return std::to_string(read_value<uint32_t>(profile, field, index));
        case Kind::kKeyIndex:
            return std::to_string(read_value<uint8_t>(profile, field, index));
    }
    return "";
}

void store_field(NetPMProfile& profile, const Field& field, size_t index, std::string_view given) {
    const std::string_view text = command_line::number_for(field.key, given);
    std::byte* const place = const_cast<std::byte*>(place_of(profile, field, index));
    const auto store = [place](const auto& value) { std::memcpy(place, &value, sizeof value); };
    switch (field.kind) {
        case Kind::kType:
            return store(uint32_t{text == "wlan" ? NETPM_PROFILE_WLAN : NETPM_PROFILE_PDP});
        case Kind::kText:
        case Kind::kProxy:
            std::memset(place, 0, field.size);
            std::memcpy(place, text.data(), text.size());
            return;
        case Kind::kAddress:
            return store(parse_address(text)->s_addr);
        case Kind::kFlag:
            return store(static_cast<uint16_t>(text == "yes"));
        case Kind::kSigned:
            return store(*parse<int32_t>(text));
        case Kind::kUnsigned:
            return store(*parse<uint32_t>(text));
        case Kind::kKeyIndex:
            return store(*parse<uint8_t>(text));
    }
}

}  // namespace quorvel::netcm
