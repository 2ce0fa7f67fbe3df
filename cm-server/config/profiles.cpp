#include "config/profiles.h"

#include <arpa/inet.h>
#include <net/if.h>

#include <algorithm>
#include <charconv>
#include <string_view>

#include "command-line/ProfileWords.h"
#include "protocol/message.h"
#include "store/check.h"
#include "store/fields.h"
#include "store/store.h"

namespace quorvel::cm {
namespace {

constexpr const char* kNoProxy = "0.0.0.0:80";

// A column's name, as the file spells it.
std::string key_of(const Field& field) {
    std::string key = field.column;
    std::ranges::replace(key, '_', '-');
    return key;
}

// Some fields have names for their numbers.
std::optional<FieldValue> number_of_field(ConfigTable& table, const Field& field, int64_t lowest,
                                          int64_t highest) {
    const std::string words = command_line::words_for(field.column);
    if (words.empty())
        return table.number(key_of(field), lowest, highest);
    return table.number_or_word(
        key_of(field), lowest, highest, words, [&](const std::string& word) -> std::optional<int64_t> {
            const std::string_view number = command_line::number_for(field.column, word);
            return number == word ? std::nullopt : std::optional(std::stoll(std::string(number)));
        });
}

std::optional<FieldValue> value_of(ConfigTable& table, const Field& field) {
    const std::string key = key_of(field);
    switch (field.kind) {
        case Field::Kind::kText:
            return table.text(key, field.size - 1);
        case Field::Kind::kAddress: {
            const auto address = table.address(key);
            return address ? std::optional<FieldValue>(to_text(*address)) : std::nullopt;
        }
        case Field::Kind::kSigned:
            return number_of_field(table, field, INT32_MIN, INT32_MAX);
        case Field::Kind::kUnsigned:
            return number_of_field(table, field, 0, UINT32_MAX);
        case Field::Kind::kShort:
            return table.number(key, 0, UINT16_MAX);
        case Field::Kind::kByte:
            return table.number(key, 0, UINT8_MAX);
    }
    return std::nullopt;  // not reached: for the compiler
}

void read_fields(ConfigTable& table, NetPMProfile& record, bool forms) {
    for (const Field& field : profile_fields()) {
        const bool in_form = field.part != Part::kPdp && field.part != Part::kWlan;
        if (in_form != forms || !has_part(record, field.part))
            continue;
        if (const auto value = value_of(table, field))
            set_field(record, field, *value);
    }
}

const char* what_has(Part part) {
    switch (part) {
        case Part::kPdp:
            return " needs kind = \"pdp\"";
        case Part::kWlan:
            return " needs kind = \"wlan\"";
        case Part::kWep:
            return " needs kind = \"wlan\" and security-mode = 2 or 3";
        case Part::kPsk:
            return " needs kind = \"wlan\" and security-mode = 4, 6 or 8";
        case Part::kEap:
            return " needs kind = \"wlan\" and security-mode = 5, 7 or 9";
    }
    return " belongs to another kind of profile";  // not reached: for the compiler
}

// What other kinds of profiles have, and this one has not.
void refuse_other_fields(ConfigTable& table, const NetPMProfile& record) {
    const auto fields = profile_fields();
    for (const Field& field : fields) {
        const auto is_ours = [&](const Field& other) {
            return std::string_view(field.column) == other.column && has_part(record, other.part);
        };
        const bool own_key = std::string_view(field.column) == "interface";  // of both kinds
        if (!own_key && std::ranges::none_of(fields, is_ours))
            table.refuse(key_of(field), what_has(field.part));
    }
}

void check_proxy(ConfigTable& table, const std::string& proxy) {
    const size_t colon = proxy.find(':');
    in_addr address{};
    unsigned port = 0;
    const char* end = proxy.data() + proxy.size();
    const bool good = colon != std::string::npos &&
                      inet_pton(AF_INET, proxy.substr(0, colon).c_str(), &address) == 1 &&
                      std::from_chars(&proxy[colon] + 1, end, port).ptr == end && port >= 1 && port <= 65535;
    if (!good)
        table.fault_at("proxy", " must be an IPv4 address and a port, such as \"192.0.2.1:8080\"");
}

void check_passphrase(ConfigTable& table, const std::string& key) {
    constexpr size_t kShortest = 8;
    constexpr size_t kOfDigits = 64;
    const bool digits = key.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    if (key.size() < kShortest || key.size() > kOfDigits || (key.size() == kOfDigits && !digits))
        table.fault_at("psk", " must be a passphrase of 8 to 63 characters, or 64 hexadecimal digits");
}

// What an application may store, and no network can be reached with.
void check_sense(ConfigTable& table, const NetPMProfile& record) {
    if (const auto proxy = table.text("proxy"))
        check_proxy(table, *proxy);
    if (has_part(record, Part::kPsk))
        if (const auto key = table.text("psk"))
            check_passphrase(table, *key);
}

void read_dns(ConfigTable& table, NetPMProfile& record) {
    const auto servers = table.addresses("dns");
    const bool pdp = record.ProfileType == NETPM_PROFILE_PDP;
    NetPMIpAddr* field = pdp ? record.PdpProfInfo.DnsAddr : record.WlanProfInfo.net_info.dns_addr;
    for (size_t i = 0; i < std::min<size_t>(servers.size(), 2); ++i)
        field[i].Ipv4 = servers[i].s_addr;
    if (servers.empty())
        return;
    if (pdp)
        record.PdpProfInfo.BStaticDnsAddr = 1;
    else
        record.WlanProfInfo.net_info.DnsConfigType = 1;
}

void set_defaults(NetPMProfile& record) {
    put_text(record.ProxyAddr, kNoProxy);
    if (record.ProfileType == NETPM_PROFILE_PDP)
        record.PdpProfInfo.AppProtoType = 1;
    else
        record.WlanProfInfo.security.sec_mode = 1;
}

}  // namespace

FactoryProfile read_factory_profile(ConfigTable& table) {
    FactoryProfile profile;
    NetPMProfile& record = profile.record;
    record.ProfileType = static_cast<uint32_t>(table.choice("kind", {"pdp", "wlan"}).value_or(0));
    put_text(record.ProfileName, table.text("name", sizeof(record.ProfileName) - 1).value_or(""));
    record.ProfileAttr = static_cast<uint32_t>(table.number("attributes", 0, UINT32_MAX).value_or(0));
    set_defaults(record);
    read_fields(table, record, false);
    read_fields(table, record, true);
    read_dns(table, record);
    refuse_other_fields(table, record);
    check_sense(table, record);
    const auto interface = table.text("interface", IFNAMSIZ - 1);
    if (record.ProfileType == NETPM_PROFILE_PDP)
        profile.interface = interface.value_or("");
    profile.is_default = table.flag("default").value_or(false);
    try {
        check_profile(record);
    } catch (const PmRefusal& refusal) {
        table.fault(refusal.what());
    }
    return profile;
}

}  // namespace quorvel::cm
