// What a connection needs of a stored profile.
#include "store/store.h"

namespace quorvel::cm {
namespace {

// The value of DnsConfigType that says: use the profile's name servers.
constexpr int32_t kStaticDns = 1;

std::vector<in_addr> addresses(const NetPMIpAddr (&stored)[2]) {
    std::vector<in_addr> result;
    for (const NetPMIpAddr& address : stored)
        if (address.Ipv4 != 0)
            result.push_back({address.Ipv4});
    return result;
}

Profile to_connection(const NetPMProfile& record, const std::string& interface) {
    Profile profile;
    profile.id = record.ProfileId;
    profile.name = record.ProfileName;
    if (record.ProfileType == NETPM_PROFILE_PDP) {
        const NetPMPdpProfInfo& pdp = record.PdpProfInfo;
        profile.kind = NETCM_IFACE_PDP;
        profile.access_point = pdp.Apn;
        profile.interface = interface;
        if (pdp.BStaticDnsAddr != 0)
            profile.dns = addresses(pdp.DnsAddr);
    } else {
        const NetPMWlanProfInfo& wlan = record.WlanProfInfo;
        profile.kind = NETCM_IFACE_WIFI;
        profile.access_point = wlan.essid;
        profile.interface = wlan.net_info.ifname;
        if (wlan.net_info.DnsConfigType == kStaticDns)
            profile.dns = addresses(wlan.net_info.dns_addr);
    }
    return profile;
}

}  // namespace

std::optional<Profile> Store::connection(int32_t id) {
    Statement row = database_.prepare("SELECT interface FROM profile WHERE id = ?");
    if (!row.bind(id).step())
        return std::nullopt;
    return to_connection(read(id), row.text(0));
}

std::vector<NamedInterface> Store::named_interfaces() {
    std::vector<NamedInterface> result;
    const auto add = [&](NetIface kind, const char* sql) {
        for (Statement row = database_.prepare(sql); row.step();)
            result.push_back({kind, row.text(0), static_cast<int>(row.number(1))});
    };
    add(NETCM_IFACE_PDP,
        "SELECT interface, count(*) FROM profile WHERE type = 0 AND interface <> '' GROUP BY interface");
    add(NETCM_IFACE_WIFI,
        "SELECT interface, count(*) FROM wlan_profile WHERE interface <> '' GROUP BY interface");
    return result;
}

}  // namespace quorvel::cm
