#include "Payload.h"

#include <cstdio>
#include <cstring>
#include <iterator>

namespace quorvel::lives {
namespace {

NetCMAddr address(uint32_t first, uint32_t rest) {
    NetCMAddr result{};
    for (size_t i = 0; i < 4; ++i)
        result.Addr[i] = static_cast<uint8_t>(i == 0 ? first : rest >> (8 * (3 - i)));
    return result;
}

uint32_t rest_of(const NetCMAddr& from) {
    return static_cast<uint32_t>(from.Addr[1]) << 16 | static_cast<uint32_t>(from.Addr[2]) << 8 |
           from.Addr[3];
}

bool same(const NetCMAddr& a, const NetCMAddr& b) {
    return a.Type == b.Type && std::memcmp(a.Addr, b.Addr, 4) == 0;
}

// What every form of the details has, and that it fits together.
std::optional<Address> common_part(const NetCMConnInfo& info) {
    const Address found{static_cast<int>(rest_of(info.IpAddr)), static_cast<int>(rest_of(info.DnsAddr[0]))};
    const wire::ConnectionBlock meant = block_of(found);
    if (!same(info.IpAddr, meant.IpAddr) || !same(info.DnsAddr[0], meant.DnsAddr[0]) ||
        !same(info.DnsAddr[1], meant.DnsAddr[1]) ||
        std::strncmp(info.IfaceName, meant.IfaceName, sizeof meant.IfaceName) != 0)
        return std::nullopt;
    return found;
}

}  // namespace

wire::ConnectionBlock block_of(Address of) {
    const auto serial = static_cast<uint32_t>(of.serial);
    const auto change = static_cast<uint32_t>(of.change);
    wire::ConnectionBlock block{};
    block.DnsCount = 2;
    block.DnsAddr[0] = address(11, change);
    block.DnsAddr[1] = address(12, serial + change);
    block.IpAddr = address(10, serial);
    block.HasOptAddr1 = 1;
    block.OptAddr1 = address(13, serial ^ change);
    block.HasOptAddr2 = 1;
    block.OptAddr2 = address(14, serial);
    std::snprintf(block.IfaceName, sizeof block.IfaceName, "net%d.%d", of.serial, of.change);
    return block;
}

std::optional<Address> address_of(const NetCMConnInfo& info) {
    const auto found = common_part(info);
    if (!found)
        return std::nullopt;
    const wire::ConnectionBlock meant = block_of(*found);
    const bool whole = info.DnsCount == 2 && info.HasOptAddr1 == 1 && info.HasOptAddr2 == 1 &&
                       same(info.OptAddr1, meant.OptAddr1) && same(info.OptAddr2, meant.OptAddr2);
    return whole ? found : std::nullopt;
}

std::optional<Address> address_of_lookup(const NetCMConnInfo& info) {
    const auto found = common_part(info);
    if (!found)
        return std::nullopt;
    const wire::ConnectionBlock meant = block_of(*found);
    // Both optional fields carry the second address there.
    const bool whole = info.DnsCount == 2 && info.HasOptAddr1 == 1 && info.HasOptAddr2 == 1 &&
                       same(info.OptAddr1, meant.OptAddr2) && same(info.OptAddr2, meant.OptAddr2);
    return whole ? found : std::nullopt;
}

std::string tunnel_bytes(uint32_t id) {
    constexpr size_t kLengths[] = {40, 0, 144, 1, 184, 80, 3, 2000, 39};
    constexpr uint32_t kCodes[] = {wire::NETCM_CLIENT_STOP_IND, wire::NETCM_CLIENT_START_RSP,
                                   wire::NETCM_CLIENT_STOP_RSP, wire::NETCM_CLIENT_KILL_RSP};
    std::string bytes;
    for (uint32_t number = 0; bytes.size() < kLengths[id % std::size(kLengths)]; ++number) {
        wire::Record record{};
        record.Code = kCodes[(id + number) % std::size(kCodes)];
        record.Word2 = 1 + (id + number) % 4;
        record.CallId = (id + number) % 4;
        record.Status = 77;
        record.Word5 = id;
        record.Word9 = number;
        bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
    }
    bytes.resize(kLengths[id % std::size(kLengths)]);
    return bytes;
}

}  // namespace quorvel::lives
