#include "bearer/interfaces.h"

#include <ifaddrs.h>
#include <linux/if_link.h>
#include <net/if.h>

#include <cstring>
#include <memory>

namespace quorvel::cm {
namespace {

template <class T>
T copied(const void* source) {
    T result{};
    std::memcpy(&result, source, sizeof(result));
    return result;
}

Counters counters_of(const void* data) {
    const auto stats = copied<rtnl_link_stats>(data);
    return {stats.rx_bytes,   stats.tx_bytes,  stats.rx_packets,
            stats.tx_packets, stats.rx_errors, stats.tx_errors};
}

void take_in(InterfaceState& state, const ifaddrs& entry) {
    state.running = (entry.ifa_flags & IFF_UP) != 0 && (entry.ifa_flags & IFF_RUNNING) != 0;
    if (entry.ifa_addr == nullptr)
        return;
    if (entry.ifa_addr->sa_family == AF_PACKET && entry.ifa_data != nullptr)
        state.counters = counters_of(entry.ifa_data);
    else if (entry.ifa_addr->sa_family == AF_INET)
        state.addresses.push_back(copied<sockaddr_in>(entry.ifa_addr).sin_addr);
}

}  // namespace

std::map<std::string, InterfaceState> all_interfaces() {
    std::map<std::string, InterfaceState> result;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
        return result;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owned(list, &freeifaddrs);
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        // An address may be labelled like an interface of its own, as in "eth0:1".
        const std::string name = entry->ifa_name;
        take_in(result[name.substr(0, name.find(':'))], *entry);
    }
    return result;
}

std::optional<InterfaceState> interface_state(const std::string& name) {
    const auto all = all_interfaces();
    const auto found = all.find(name);
    if (found == all.end())
        return std::nullopt;
    return found->second;
}

}  // namespace quorvel::cm
