#include "config/profiles.h"

#include <algorithm>

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
            return table.number(key, INT32_MIN, INT32_MAX);
        case Field::Kind::kUnsigned:
            return table.number(key, 0, UINT32_MAX);
        case Field::Kind::kShort:
            return table.number(key, 0, UINT16_MAX);
        case Field::Kind::kByte:
            return table.number(key, 0, UINT8_MAX);
    }
    return std::nullopt;
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
    if (record.ProfileType == NETPM_PROFILE_PDP)
        profile.interface = table.text("interface").value_or("");
    profile.is_default = table.flag("default").value_or(false);
    try {
        check_profile(record);
    } catch (const PmRefusal& refusal) {
        table.fault(refusal.what());
    }
    return profile;
}

}  // namespace quorvel::cm
