// Tunnel data: what a client sends comes back to it.
#include "requests/handlers.h"

namespace quorvel::cm {
namespace {

void set_indications(Client& client, const Request& request, bool wanted) {
    client.wants_tunnel_indications = wanted;
    log_request(client, wanted ? "wants tunnel indications" : "wants no tunnel indications any more");
    client.sync->send(answer_to(request));
}

}  // namespace

void tunnel(Services services, Client& client, const Request& request) {
    const uint32_t id = services.clients.next_tunnel_request();
    log_request(client, "sends ", request.payload.size(), " bytes of tunnel data, request ", id);
    Message answer = answer_to(request);
    answer.record.CallId = id;
    client.sync->send(answer);
    Message response = answer_to(request);
    response.record.Word2 = static_cast<uint32_t>(request.payload.size());
    response.record.CallId = id;
    response.block = request.payload;
    services.clients.push(client.id, std::move(response));
}

void register_tunnel_indications(Services, Client& client, const Request& request) {
    set_indications(client, request, true);
}

void deregister_tunnel_indications(Services, Client& client, const Request& request) {
    set_indications(client, request, false);
}

}  // namespace quorvel::cm
