// What is connected, how the network is, and what has gone over it.
#include <algorithm>

#include "protocol/active_connection.h"
#include "requests/handlers.h"

namespace quorvel::cm {
namespace {

// The first profiles whose connection is up, as many as a list takes; suspended counts as up.
template <class Each>
void each_active_profile(const Calls& calls, size_t most, const Each& each) {
    for (const Call& call : calls.all())
        if (call.connected() && most > 0)
            call.users.each_profile([&](const Profile& profile) {
                each(profile);
                return --most > 0;
            });
}

template <class Block>
void send_block(const Client& client, Message answer, const Block& block) {
    append(answer.block, block);
    client.sync->send(answer);
}

wire::ActiveConnection describe_connection(uint32_t id, const Call& call, const Profile& profile) {
    wire::ActiveConnection entry{};
    entry.ProfileId = profile.id;
    put_text(entry.Apn, profile.access_point);
    ActiveConnectionDetails details{};
    put_text(details.IfaceName, call.addresses.interface);
    details.Ipv4 = call.addresses.address.s_addr;
    details.CallId = id;
    details.Suspended = call.state == Call::State::kSuspended ? 1 : 0;
    details.Users = static_cast<uint32_t>(call.users.size());
    put_details(entry, details);
    return entry;
}

}  // namespace

void get_active_profile_ids(Services services, Client& client, const Request& request) {
    wire::ProfileIdBlock block{};
    each_active_profile(services.calls, std::size(block.ProfileId),
                        [&](const Profile& profile) { block.ProfileId[block.Count++] = profile.id; });
    log_request(client, "asks for the ids of active profiles: ", block.Count);
    send_block(client, answer_to(request), block);
}

void get_active_profile_names(Services services, Client& client, const Request& request) {
    wire::ProfileNameBlock block{};
    each_active_profile(services.calls, std::size(block.Name),
                        [&](const Profile& profile) { put_text(block.Name[block.Count++], profile.name); });
    log_request(client, "asks for the names of active profiles: ", block.Count);
    send_block(client, answer_to(request), block);
}

void get_active_connections(Services services, Client& client, const Request& request) {
    const uint32_t kind = request.header.Param;
    wire::ActiveConnectionBlock block{};
    const auto& calls = services.calls.all();
    for (uint32_t id = 0; id < kCallCount; ++id)
        if (calls[id].connected() && calls[id].users.first_profile().kind == kind)
            block.Connection[block.Count++] =
                describe_connection(id, calls[id], calls[id].users.first_profile());
    log_request(client, "asks for the active connections over interfaces of kind ", kind, ": ", block.Count);
    send_block(client, answer_to(request), block);
}

void get_statistics(Services services, Client& client, const Request& request) {
    wire::StatisticsBlock block{};
    std::ranges::copy(services.statistics.read(), block.Counter);
    log_request(client, "asks for statistics");
    send_block(client, answer_to(request), block);
}

void reset_statistics(Services services, Client& client, const Request& request) {
    const uint32_t level = request.header.Arg4;
    log_request(client, "resets statistics of level ", level);
    const bool known = level <= kLastResetLevel;
    if (known)
        services.statistics.reset(static_cast<ResetLevel>(level));
    client.sync->send(answer_to(request, known ? NETCM_SUCCESS : NETCM_ERR_INVALID_PARAM));
}

void get_network_status(Services services, Client& client, const Request& request) {
    services.interfaces.catch_up();
    const NetworkStatus packet_data = services.networks.status(NETCM_IFACE_PDP);
    const NetworkStatus wifi = services.networks.status(NETCM_IFACE_WIFI);
    Message answer = answer_to(request);
    answer.record.Word8 = static_cast<uint32_t>(packet_data);
    answer.record.Word7 = static_cast<uint32_t>(wifi);
    log_request(client, "asks for the network status: packet data ", to_text(packet_data), ", Wi-Fi ",
                to_text(wifi));
    client.sync->send(answer);
}

void get_interface_list(Services services, Client& client, const Request& request) {
    services.interfaces.catch_up();
    Message answer = answer_to(request);
    answer.record.Word2 = services.networks.available();
    log_request(client, "asks for the available interfaces: ", answer.record.Word2);
    client.sync->send(answer);
}

}  // namespace quorvel::cm
