// Settings and packet-data states.
#include "requests/handlers.h"

namespace quorvel::cm {
namespace {

int32_t profile_of(const Request& request) {
    return static_cast<int32_t>(request.header.Arg4);
}

}  // namespace

// Only a connection that is there has a packet-data state.
void get_packet_data_state(Services services, Client& client, const Request& request) {
    const uint32_t* state = services.calls.packet_data_state(profile_of(request));
    Message answer = answer_to(request, state != nullptr ? NETCM_SUCCESS : NETCM_ERR_NOT_ACTIVE);
    if (state != nullptr)
        answer.record.Word2 = *state;
    log_request(client, "asks for the packet-data state of profile ", profile_of(request), ": ",
                answer.record.Word2);
    client.sync->send(answer);
}

void set_packet_data_state(Services services, Client& client, const Request& request) {
    const uint32_t wanted = request.header.Arg3;
    const bool valid = wanted >= kLowestPacketDataState && wanted <= kHighestPacketDataState;
    uint32_t* state = services.calls.packet_data_state(profile_of(request));
    NetCMStatus status = valid ? NETCM_SUCCESS : NETCM_ERR_INVALID_PARAM;
    if (valid && state == nullptr)
        status = NETCM_ERR_NOT_ACTIVE;
    if (status == NETCM_SUCCESS)
        *state = wanted;
    log_request(client, "sets the packet-data state of profile ", profile_of(request), " to ", wanted,
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
