#include "requests/requests.h"

#include <algorithm>
#include <array>

#include "requests/handlers.h"

namespace quorvel::cm {
namespace {

struct Entry {
    wire::Command command;
    Handler handler;
};
constexpr std::array kHandlers{
    Entry{wire::NETCM_CLIENT_START_REQ, start_call},
    Entry{wire::NETCM_CLIENT_STOP_REQ, stop_call},
    Entry{wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ, get_active_profile_ids},
    Entry{wire::NETCM_CLIENT_TUNNEL_REQ, tunnel},
    Entry{wire::NETCM_CLIENT_KILL_REQ, kill_call},
    Entry{wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ, get_default_profile},
    Entry{wire::NETCM_CLIENT_GET_STAT_INFO_REQ, get_statistics},
    Entry{wire::NETCM_CLIENT_RESET_STAT_INFO_REQ, reset_statistics},
    Entry{wire::NETPM_PROFILE_REQ, ask_profile_manager},
    Entry{wire::NETPM_APPPROF_REQ, ask_application_profile},
    Entry{wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ, get_active_connections},
    Entry{wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_REQ, get_active_profile_names},
    Entry{wire::NETCM_CLIENT_GET_PACKET_DATA_STATE_REQ, get_packet_data_state},
    Entry{wire::NETCM_CLIENT_SET_PACKET_DATA_STATE_REQ, set_packet_data_state},
    Entry{wire::NETCM_CLIENT_REGISTER_TUNNEL_IND_REQ, register_tunnel_indications},
    Entry{wire::NETCM_CLIENT_DEREGISTER_TUNNEL_IND_REQ, deregister_tunnel_indications},
    Entry{wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ, get_network_status},
    Entry{wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ, get_interface_list},
    Entry{wire::NETCM_CLIENT_SET_SETTINGS_REQ, set_setting},
    Entry{wire::NETCM_CLIENT_GET_SETTINGS_REQ, get_setting},
};

}  // namespace

void handle_request(Services services, Client& client, const Request& request) {
    const auto found = std::ranges::find(kHandlers, request.header.Command,
                                         [](const Entry& entry) { return uint32_t{entry.command}; });
    if (found == kHandlers.end())
        return client.sync->close("it asks for what is not served");  // not reached: for the compiler
    try {
        found->handler(services, client, request);
    } catch (const DatabaseError& error) {
        log::error("the store fails: ", error.what());
        client.sync->send(answer_to(request, NETCM_ERR_FAILURE));
    }
}

}  // namespace quorvel::cm
