// The handlers of single requests. Each logs the request in words, and answers it.
#pragma once

#include <algorithm>

#include "log.h"
#include "requests/requests.h"

namespace quorvel::cm {

using Handler = void (*)(Services services, Client& client, const Request& request);

void get_default_profile(Services services, Client& client, const Request& request);
void start_call(Services services, Client& client, const Request& request);
void stop_call(Services services, Client& client, const Request& request);
void kill_call(Services services, Client& client, const Request& request);

void get_active_profile_ids(Services services, Client& client, const Request& request);
void get_active_profile_names(Services services, Client& client, const Request& request);
void get_active_connections(Services services, Client& client, const Request& request);
void get_statistics(Services services, Client& client, const Request& request);
void reset_statistics(Services services, Client& client, const Request& request);
void get_network_status(Services services, Client& client, const Request& request);
void get_interface_list(Services services, Client& client, const Request& request);

void get_packet_data_state(Services services, Client& client, const Request& request);
void set_packet_data_state(Services services, Client& client, const Request& request);
void get_setting(Services services, Client& client, const Request& request);
void set_setting(Services services, Client& client, const Request& request);

void tunnel(Services services, Client& client, const Request& request);
void register_tunnel_indications(Services services, Client& client, const Request& request);
void deregister_tunnel_indications(Services services, Client& client, const Request& request);

void ask_profile_manager(Services services, Client& client, const Request& request);
void ask_application_profile(Services services, Client& client, const Request& request);

// The answer that the request's command asks for.
inline Message answer_to(const Request& request, uint32_t status = NETCM_SUCCESS) {
    const auto code = wire::find_command(request.header.Command)->answer;
    return make_message(static_cast<wire::Event>(code), status);
}

// A command that asks the store, its words in the log and what it does.
template <class... Arguments>
struct StoreCommand {
    uint32_t command;
    const char* words;
    void (*handler)(Arguments...);
};

struct CarriedOut {
    const char* words;
    PmError error;
};

// Does what the table has for the command: done, or why it is refused. `unknown` are the words for a command
// that is not there.
template <class Table, class... Arguments>
CarriedOut carry_out(const Table& table, uint32_t command, const char* unknown, Arguments&... arguments) {
    const auto found = std::ranges::find(table, command, &Table::value_type::command);
    if (found == table.end())
        return {unknown, PM_ERR_UNKNOWN_COMMAND};
    try {
        found->handler(arguments...);
        return {found->words, PM_SUCCESS};
    } catch (const PmRefusal& refusal) {
        return {found->words, refusal.error};
    } catch (const DatabaseError& error) {
        log::error("the store fails: ", error.what());
        return {found->words, PM_ERR_STORE};
    }
}

template <class... Parts>
void log_request(const Client& client, const Parts&... parts) {
    log::info(describe(client), " ", parts...);
}

}  // namespace quorvel::cm
