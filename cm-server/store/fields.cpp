#include "store/fields.h"

#include <arpa/inet.h>

#include <array>
#include <cstring>

#include "common/SecurityForm.h"
#include "protocol/message.h"

namespace quorvel::cm {
namespace {

using Kind = Field::Kind;

#define FIELD(part, column, kind, member)                                                             \
    Field {                                                                                           \
        Part::part, column, Kind::kind, offsetof(NetPMProfile, member), sizeof(NetPMProfile{}.member) \
    }
#define PDP(column, kind, member) FIELD(kPdp, column, kind, PdpProfInfo.member)
#define WLAN(column, kind, member) FIELD(kWlan, column, kind, WlanProfInfo.member)
#define SECURE(part, column, kind, member) FIELD(part, column, kind, WlanProfInfo.security.form.member)
constexpr std::array kFields{
    PDP("proxy", kText, ProxyAddr),
    PDP("primary_profile", kShort, BPrimaryPdpProfile),
    PDP("primary_profile_id", kSigned, PrimaryPdpProfileId),
    PDP("protocol_type", kUnsigned, ProtocolType),
    PDP("apn", kText, Apn),
    PDP("address_type", kUnsigned, AddrType),
    PDP("static_address", kShort, BStaticIpAddr),
    PDP("address", kAddress, IpAddr),
    PDP("static_dns", kShort, BStaticDnsAddr),
    PDP("primary_dns", kAddress, DnsAddr[0]),
    PDP("secondary_dns", kAddress, DnsAddr[1]),
    PDP("qos_type", kUnsigned, QosInfo.QosType),
    PDP("traffic_class", kUnsigned, QosInfo.Qos.QosUmts.TrafficClass),
    PDP("auth_type", kUnsigned, AuthInfo.AuthType),
    PDP("user_name", kText, AuthInfo.UserName),
    PDP("password", kText, AuthInfo.Password),
    PDP("gateway", kAddress, DefGateway),
    PDP("net_mask", kAddress, NetMask),
    PDP("home_url", kText, HomeURL),
    PDP("secure_connection", kShort, BSecureConnection),
    PDP("app_protocol", kUnsigned, AppProtoType),
    PDP("linger_time", kSigned, lingerTime),
    WLAN("proxy", kText, ProxyAddr),
    WLAN("essid", kText, essid),
    WLAN("bssid", kText, bssid),
    WLAN("frequency", kSigned, freq),
    WLAN("rate", kSigned, rate),
    WLAN("standard", kSigned, standard),
    WLAN("mode", kSigned, wlan_mode),
    WLAN("security_mode", kSigned, security.sec_mode),
    WLAN("encryption_mode", kSigned, security.encrypt_mode),
    SECURE(kWep, "wep_key_0", kText, wep.wepKey[0]),
    SECURE(kWep, "wep_key_1", kText, wep.wepKey[1]),
    SECURE(kWep, "wep_key_2", kText, wep.wepKey[2]),
    SECURE(kWep, "wep_key_3", kText, wep.wepKey[3]),
    SECURE(kWep, "wep_key_index", kByte, wep.wepKeyIndex),
    SECURE(kPsk, "psk", kText, psk.pskKey),
    SECURE(kEap, "eap_user_name", kText, eap.username),
    SECURE(kEap, "eap_password", kText, eap.password),
    SECURE(kEap, "eap_ca_certificate", kText, eap.ca_cert_filename),
    SECURE(kEap, "eap_client_certificate", kText, eap.client_cert_filename),
    SECURE(kEap, "eap_private_key", kText, eap.private_key_filename),
    SECURE(kEap, "eap_key_password", kText, eap.private_key_passwd),
    SECURE(kEap, "eap_type", kSigned, eap.wlan_eap_type),
    WLAN("address_type", kSigned, net_info.addr_type),
    WLAN("ip_config_type", kSigned, net_info.IpConfigType),
    WLAN("address", kAddress, net_info.ip_addr),
    WLAN("gateway", kAddress, net_info.def_gateway),
    WLAN("net_mask", kAddress, net_info.net_mask),
    WLAN("dns_config_type", kSigned, net_info.DnsConfigType),
    WLAN("primary_dns", kAddress, net_info.dns_addr[0]),
    WLAN("secondary_dns", kAddress, net_info.dns_addr[1]),
    WLAN("interface", kText, net_info.ifname),
};
#undef SECURE
#undef WLAN
#undef PDP
#undef FIELD

template <class T>
T read_at(const NetPMProfile& profile, const Field& field) {
    T value{};
    std::memcpy(&value, reinterpret_cast<const char*>(&profile) + field.offset, sizeof(value));
    return value;
}

template <class T>
void write_at(NetPMProfile& profile, const Field& field, int64_t number) {
    const T value = static_cast<T>(number);
    std::memcpy(reinterpret_cast<char*>(&profile) + field.offset, &value, sizeof(value));
}

std::string_view whole_text(const NetPMProfile& profile, const Field& field) {
    return {reinterpret_cast<const char*>(&profile) + field.offset, field.size};
}

void set_text(NetPMProfile& profile, const Field& field, const std::string& text) {
    put_text({reinterpret_cast<char*>(&profile) + field.offset, field.size}, text);
}

void set_address(NetPMProfile& profile, const Field& field, const std::string& text) {
    in_addr address{};
    inet_pton(AF_INET, text.c_str(), &address);
    write_at<uint32_t>(profile, field, address.s_addr);
}

}  // namespace

std::span<const Field> profile_fields() {
    return kFields;
}

const char* table_of(Part part) {
    return part == Part::kPdp ? "pdp_profile" : "wlan_profile";
}

bool has_part(const NetPMProfile& profile, Part part) {
    if (part == Part::kPdp || part == Part::kWlan)
        return (part == Part::kPdp) == (profile.ProfileType == NETPM_PROFILE_PDP);
    if (profile.ProfileType != NETPM_PROFILE_WLAN)
        return false;
    using wire::SecurityForm;
    const SecurityForm form = wire::security_form(profile.WlanProfInfo.security.sec_mode);
    return (part == Part::kWep && form == SecurityForm::kWep) ||
           (part == Part::kPsk && form == SecurityForm::kPsk) ||
           (part == Part::kEap && form == SecurityForm::kEap);
}

FieldValue get_field(const NetPMProfile& profile, const Field& field) {
    switch (field.kind) {
        case Kind::kText: {
            const auto whole = whole_text(profile, field);
            return std::string(whole.substr(0, whole.find('\0')));
        }
        case Kind::kSigned:
            return int64_t{read_at<int32_t>(profile, field)};
        case Kind::kUnsigned:
            return int64_t{read_at<uint32_t>(profile, field)};
        case Kind::kShort:
            return int64_t{read_at<uint16_t>(profile, field)};
        case Kind::kByte:
            return int64_t{read_at<uint8_t>(profile, field)};
        case Kind::kAddress:
            return to_text(in_addr{read_at<uint32_t>(profile, field)});
    }
    return int64_t{0};  // not reached: for the compiler
}

void set_field(NetPMProfile& profile, const Field& field, const FieldValue& value) {
    if (field.kind == Kind::kText)
        return set_text(profile, field, std::get<std::string>(value));
    if (field.kind == Kind::kAddress)
        return set_address(profile, field, std::get<std::string>(value));
    const int64_t number = std::get<int64_t>(value);
    if (field.kind == Kind::kShort)
        return write_at<uint16_t>(profile, field, number);
    if (field.kind == Kind::kByte)
        return write_at<uint8_t>(profile, field, number);
    write_at<uint32_t>(profile, field, number);
}

bool ends_within(const NetPMProfile& profile, const Field& field) {
    return field.kind != Kind::kText || whole_text(profile, field).find('\0') != std::string_view::npos;
}

}  // namespace quorvel::cm
