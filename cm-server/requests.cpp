#include "requests.h"

#include <algorithm>
#include <array>

#include "log.h"

namespace quorvel::cm {
namespace {

using Handler = void (*)(Services services, Client& client, const Request& request);

void get_default_profile(Services services, Client& client, const Request&) {
    const auto id = services.store.default_id();
    Message answer = make_message(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP,
                                  id ? NETCM_SUCCESS : NETCM_ERR_INVALID_PROFILE);
    answer.record.Word2 = static_cast<uint32_t>(id.value_or(0));
    log::info(describe(client), " asks for the default profile: it is ", id.value_or(0));
    client.sync->send(answer);
}

void start(Services services, Client& client, const Request& request) {
    const auto id = static_cast<int32_t>(request.header.Arg4);
    Message answer = make_message(wire::NETCM_CLIENT_START_RSP);
    answer.record.Word2 = request.header.Arg4;
    const auto profile = services.store.find(id);
    const auto call = profile ? services.calls.start(client.id, *profile) : std::nullopt;
    if (call) {
        answer.record.CallId = *call;
        log::info(describe(client), " opens ", describe(*profile), ": call ", *call);
    } else {
        answer.record.Status = profile ? NETCM_ERR_MAX_LIMIT : NETCM_ERR_INVALID_PROFILE;
        log::info(describe(client), " opens profile ", id, ": ",
                  profile ? "all calls are taken" : "there is no such profile");
    }
    client.sync->send(answer);
    if (call)
        services.calls.respond_if_up(*call, {client.id, id});
}

void stop(Services services, Client& client, const Request& request) {
    const uint32_t call = request.header.Arg3;
    const auto profile = static_cast<int32_t>(request.header.Arg4);
    const bool stopped = services.calls.stop(client.id, call);
    log::info(describe(client), " closes profile ", profile, " on call ", call,
              stopped ? "" : ", which it does not use");
    Message response =
        make_message(wire::NETCM_CLIENT_STOP_RSP, stopped ? NETCM_SUCCESS : NETCM_ERR_NOT_ACTIVE);
    response.record.Word2 = request.header.Arg4;
    response.record.CallId = call;
    services.clients.push(client.id, response);
}

struct Entry {
    wire::Command command;
    Handler handler;
};
constexpr std::array kHandlers{
    Entry{wire::NETCM_CLIENT_START_REQ, start},
    Entry{wire::NETCM_CLIENT_STOP_REQ, stop},
    Entry{wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ, get_default_profile},
};

}  // namespace

void handle_request(Services services, Client& client, const Request& request) {
    const auto found = std::ranges::find(kHandlers, request.header.Command,
                                         [](const Entry& entry) { return uint32_t{entry.command}; });
    if (found == kHandlers.end())
        return client.sync->close(std::string(wire::find_command(request.header.Command)->name) +
                                  " is not served");
    found->handler(services, client, request);
}

}  // namespace quorvel::cm
