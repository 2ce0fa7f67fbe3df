// Settings and packet-data states.
#include "requests/handlers.h"

namespace quorvel::cm {
namespace {

int32_t profile_of(const Request& request) {
    return static_cast<int32_t>(request.header.Arg4);
}

// Only a connection that is there has a packet-data state.
NetCMStatus check_profile(Services services, const Request& request) {
    return services.calls.find(profile_of(request)) ? NETCM_SUCCESS : NETCM_ERR_NOT_ACTIVE;
}

}  // namespace

void get_packet_data_state(Services services, Client& client, const Request& request) {
    const auto& states = services.settings.packet_data_states;
    const auto found = states.find(profile_of(request));
    Message answer = answer_to(request, check_profile(services, request));
    if (answer.record.Status == NETCM_SUCCESS)
        answer.record.Word2 = found == states.end() ? kLowestPacketDataState : found->second;
    log_request(client, "asks for the packet-data state of profile ", profile_of(request), ": ",
                answer.record.Word2);
    client.sync->send(answer);
}

void set_packet_data_state(Services services, Client& client, const Request& request) {
    const uint32_t state = request.header.Arg3;
    const bool valid = state >= kLowestPacketDataState && state <= kHighestPacketDataState;
    const NetCMStatus status = valid ? check_profile(services, request) : NETCM_ERR_INVALID_PARAM;
    if (status == NETCM_SUCCESS)
        services.settings.packet_data_states[profile_of(request)] = state;
    log_request(client, "sets the packet-data state of profile ", profile_of(request), " to ", state,
                status == NETCM_SUCCESS ? "" : ": refused");
    client.sync->send(answer_to(request, status));
}

void get_setting(Services services, Client& client, const Request& request) {
    const uint32_t key = request.header.Arg3;
    const auto& values = services.settings.values;
    Message answer = answer_to(request, key < values.size() ? NETCM_SUCCESS : NETCM_ERR_INVALID_PARAM);
    if (key < values.size())
        answer.record.Word2 = values[key];
    log_request(client, "asks for setting ", key, ": ", answer.record.Word2);
    client.sync->send(answer);
}

void set_setting(Services services, Client& client, const Request& request) {
    const uint32_t key = request.header.Arg3;
    auto& values = services.settings.values;
    const bool known = key < values.size();
    if (known)
        values[key] = request.header.Arg4;
    log_request(client, "sets setting ", key, " to ", request.header.Arg4, known ? "" : ": there is none");
    client.sync->send(answer_to(request, known ? NETCM_SUCCESS : NETCM_ERR_INVALID_PARAM));
}

}  // namespace quorvel::cm
