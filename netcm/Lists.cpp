#include "Lists.h"

#include <quorvel/NetCM.h>

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <string>

#include "Command.h"
#include "Status.h"

namespace quorvel::netcm {
namespace {

constexpr size_t kMaxIds = 16;
constexpr size_t kMaxConnections = 4;

struct NameEntry {
    std::array<char, 100> text;
};

// The entry of an active connection. What stands behind the APN is the server's own: these are the details of
// the CM server of this package; another one's are empty, or something else.
struct ConnectionEntry {
    int32_t profile_id;
    std::array<char, 104> apn;
    std::array<char, 32> device;
    in_addr address;
    uint32_t call_id;
    uint32_t suspended;
    uint32_t users;
    std::array<uint8_t, 20> reserved;
};
static_assert(sizeof(ConnectionEntry) == 176);

template <size_t N>
std::string text_of(const std::array<char, N>& field) {
    return {field.data(), strnlen(field.data(), N)};
}

// The number of entries behind a list query.
uint32_t checked_count(uint32_t status, uint32_t count, const char* what) {
    if (status == NETCM_ERR_NOT_ACTIVE) {
        return 0;
    }
    require_success(status, what);
    return count;
}

template <class Entry, size_t N>
uint8_t* bytes_of(std::array<Entry, N>& entries) {
    return reinterpret_cast<uint8_t*>(entries.data());
}

// As far as they make sense: an interface's name, an address, a state that is one.
void add_details(Json& connection, const ConnectionEntry& entry) {
    const std::string device = text_of(entry.device);
    const auto is_visible = [](unsigned char c) { return std::isgraph(c) != 0; };
    if (device.empty() || !std::ranges::all_of(device, is_visible) || entry.suspended > 1) {
        return;
    }
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &entry.address, text.data(), text.size());
    connection["device"] = device;
    connection["address"] = text.data();
    connection["state"] = entry.suspended == 1 ? "suspended" : "up";
    connection["users"] = entry.users;
    connection["call_id"] = entry.call_id;
}

}  // namespace

Json active_ids() {
    std::array<int32_t, kMaxIds> ids{};
    uint32_t count = 0;
    const uint32_t status = NetCMGetActiveProfileIDs(bytes_of(ids), &count);
    count = checked_count(status, count, "cannot list the active profiles");
    return std::vector(ids.begin(), ids.begin() + count);
}

Json active_names() {
    std::array<NameEntry, kMaxIds> names{};
    uint32_t count = 0;
    const uint32_t status = NetCMGetActiveProfileNameList(bytes_of(names), &count);
    count = checked_count(status, count, "cannot list the names of the active profiles");
    Json list = Json::array();
    for (size_t i = 0; i < count; ++i) {
        list.push_back(text_of(names[i].text));
    }
    return list;
}

Json active_connections(uint32_t interface) {
    std::array<ConnectionEntry, kMaxConnections> entries{};
    uint32_t count = 0;
    const uint32_t status = NetCMGetActiveConnectionList(interface, bytes_of(entries), &count);
    count = checked_count(status, count, "cannot list the active connections");
    Json list = Json::array();
    for (size_t i = 0; i < count; ++i) {
        list.push_back({{"interface", interface_name(interface)},
                        {"profile_id", entries[i].profile_id},
                        {"apn", text_of(entries[i].apn)}});
        add_details(list.back(), entries[i]);
    }
    return list;
}

}  // namespace quorvel::netcm
