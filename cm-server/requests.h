// What the server does with each request of a registered client.
#pragma once

#include "calls.h"
#include "clients.h"
#include "protocol/request.h"
#include "store.h"

namespace quorvel::cm {

struct Services {
    Clients& clients;
    Calls& calls;
    Store& store;
};

void handle_request(Services services, Client& client, const Request& request);

}  // namespace quorvel::cm
