// Opening, closing and killing connections.
#include "requests/handlers.h"

namespace quorvel::cm {

void get_default_profile(Services services, Client& client, const Request& request) {
    const auto id = services.store.default_id();
    Message answer = answer_to(request, id ? NETCM_SUCCESS : NETCM_ERR_INVALID_PROFILE);
    answer.record.Word2 = static_cast<uint32_t>(id.value_or(0));
    log_request(client, "asks for the default profile: it is ", id.value_or(0));
    client.sync->send(answer);
}

void start_call(Services services, Client& client, const Request& request) {
    const auto id = static_cast<int32_t>(request.header.Arg4);
    Message answer = answer_to(request);
    answer.record.Word2 = request.header.Arg4;
    const auto profile = services.store.connection(id);
    const auto call = profile ? services.calls.start(client.id, *profile) : std::nullopt;
    if (call) {
        answer.record.CallId = *call;
        log_request(client, "opens ", describe(*profile), ": call ", log::field("call", *call));
    } else {
        answer.record.Status = profile ? NETCM_ERR_MAX_LIMIT : NETCM_ERR_INVALID_PROFILE;
        log_request(client, "opens profile ", log::field("profile", id), ": ",
                    profile ? "all calls are taken" : "there is no such profile");
    }
    client.sync->send(answer);
    if (call)
        services.calls.respond_if_up(*call, client.id, id);
}

void stop_call(Services services, Client& client, const Request& request) {
    const uint32_t call = request.header.Arg3;
    const auto profile = static_cast<int32_t>(request.header.Arg4);
    const bool stopped = services.calls.stop(client.id, call);
    log_request(client, "closes profile ", log::field("profile", profile), " on call ",
                log::field("call", call), stopped ? "" : ", which it does not use");
    Message response = answer_to(request, stopped ? NETCM_SUCCESS : NETCM_ERR_NOT_ACTIVE);
    response.record.Word2 = request.header.Arg4;
    response.record.CallId = call;
    services.clients.push(client.id, response);
}

void kill_call(Services services, Client& client, const Request& request) {
    const auto profile = static_cast<int32_t>(request.header.Arg4);
    const bool killed = services.calls.kill(client.id, profile);
    log_request(client, "kills the connection of profile ", log::field("profile", profile),
                killed ? "" : ", which has none");
}

}  // namespace quorvel::cm
