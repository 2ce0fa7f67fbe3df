// What the server does with each request of a registered client.
#pragma once

#include "bearer/interfaces.h"
#include "bearer/networks.h"
#include "bearer/statistics.h"
#include "calls.h"
#include "clients.h"
#include "protocol/request.h"
#include "quotas.h"
#include "settings.h"
#include "store/store.h"

namespace quorvel::cm {

struct Services {
    Clients& clients;
    Calls& calls;
    Store& store;
    Settings& settings;
    Statistics& statistics;
    const Networks& networks;
    Interfaces& interfaces;
    const Limits& limits;
};

void handle_request(Services services, Client& client, const Request& request);

}  // namespace quorvel::cm
