#include "interfaces.h"

#include <ifaddrs.h>
#include <net/if.h>

#include <cstring>
#include <memory>

namespace quorvel::cm {

std::optional<InterfaceState> interface_state(const std::string& name) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
        return std::nullopt;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owned(list, &freeifaddrs);
    std::optional<InterfaceState> state;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (name != entry->ifa_name)
            continue;
        if (!state)
            state.emplace();
        state->running = (entry->ifa_flags & IFF_UP) != 0 && (entry->ifa_flags & IFF_RUNNING) != 0;
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET || state->address)
            continue;
        sockaddr_in address{};
        std::memcpy(&address, entry->ifa_addr, sizeof(address));
        state->address = address.sin_addr;
    }
    return state;
}

}  // namespace quorvel::cm
