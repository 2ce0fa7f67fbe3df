#include "monitor/decode_blocks.h"

#include <algorithm>
#include <array>

#include "protocol/active_connection.h"
#include "protocol/cursor.h"
#include "protocol/pm_message.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

constexpr std::array<uint32_t, 3> kIdLists{wire::kPmAnswer + wire::NETPM_CLIENT_GET_POFILE_LIST_REQ,
                                           wire::kPmAnswer + wire::NETPM_CLIENT_GET_PROFILE_ID_FOR_APN_REQ,
                                           wire::kPmAnswer + wire::NETPM_CLIENT_FIND_PROFILE_IDS_REQ};
constexpr uint32_t kPartialList = wire::kPmAnswer + wire::NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ;

json to_json(const wire::ConnectionBlock& block) {
    const auto dotted = [](const NetCMAddr& address) {
        in_addr plain{};
        std::memcpy(&plain, address.Addr, sizeof(plain));
        return to_text(plain);
    };
    json dns = json::array();
    for (int32_t i = 0; i < std::clamp(block.DnsCount, 0, 2); ++i)
        dns.push_back(dotted(block.DnsAddr[i]));
    return {{"interface", field_text(block.IfaceName)}, {"address", dotted(block.IpAddr)}, {"dns", dns}};
}

json to_json(const wire::ProfileIdBlock& block) {
    const size_t count = std::min<size_t>(block.Count, std::size(block.ProfileId));
    return {{"count", block.Count}, {"profiles", std::vector(block.ProfileId, block.ProfileId + count)}};
}

json to_json(const wire::ProfileNameBlock& block) {
    json names = json::array();
    for (size_t i = 0; i < std::min<size_t>(block.Count, std::size(block.Name)); ++i)
        names.push_back(field_text(block.Name[i]));
    return {{"count", block.Count}, {"names", names}};
}

json to_json(const wire::ActiveConnection& connection) {
    ActiveConnectionDetails details{};
    std::memcpy(&details, connection.Opaque, sizeof(details));
    return {{"profile", connection.ProfileId},
            {"access-point", field_text(connection.Apn)},
            {"interface", field_text(details.IfaceName)},
            {"address", to_text(in_addr{details.Ipv4})},
            {"call", details.CallId},
            {"suspended", details.Suspended != 0},
            {"users", details.Users}};
}

json to_json(const wire::ActiveConnectionBlock& block) {
    json connections = json::array();
    for (size_t i = 0; i < std::min<size_t>(block.Count, std::size(block.Connection)); ++i)
        connections.push_back(to_json(block.Connection[i]));
    return {{"count", block.Count}, {"connections", connections}};
}

json to_json(const wire::StatisticsBlock& block) {
    return {{"received-bytes", block.Counter[0]},   {"sent-bytes", block.Counter[1]},
            {"received-packets", block.Counter[2]}, {"sent-packets", block.Counter[3]},
            {"receive-errors", block.Counter[4]},   {"send-errors", block.Counter[5]}};
}

json to_json(const NetPMProfileIdList& list) {
    const auto count = static_cast<size_t>(
        std::clamp<int32_t>(list.Count, 0, static_cast<int32_t>(std::size(list.ProfileId))));
    return {{"count", list.Count}, {"profiles", std::vector(list.ProfileId, list.ProfileId + count)}};
}

json to_json(const NetPMPartialProfile& profile) {
    return {{"id", profile.ProfileId},
            {"type", profile.ProfileType},
            {"name", field_text(profile.ProfileName)},
            {"network", field_text(profile.NetworkName)}};
}

template <class Block>
json read_block(std::span<const std::byte> bytes) {
    Block block{};
    return Cursor(bytes).read(block) ? to_json(block) : json::object();
}

}  // namespace

json block_json(const Message& message) {
    switch (message.record.Code) {
        case wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_RSP:
            return read_block<wire::ProfileIdBlock>(message.block);
        case wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_RSP:
            return read_block<wire::ProfileNameBlock>(message.block);
        case wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_RSP:
            return read_block<wire::ActiveConnectionBlock>(message.block);
        case wire::NETCM_CLIENT_GET_STAT_INFO_RSP:
            return read_block<wire::StatisticsBlock>(message.block);
        default:
            return read_block<wire::ConnectionBlock>(message.block);
    }
}

bool is_list(uint32_t answer) {
    return answer == kPartialList || std::ranges::find(kIdLists, answer) != kIdLists.end();
}

json profile_list_json(uint32_t answer, std::span<const std::byte> data) {
    if (answer != kPartialList)
        return read_block<NetPMProfileIdList>(data);
    json list = json::array();
    Cursor cursor(data);
    for (NetPMPartialProfile profile{}; cursor.read(profile);)
        list.push_back(to_json(profile));
    return list;
}

}  // namespace quorvel::cm
