// Who is registered, on which sockets.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "connection.h"
#include "log.h"

namespace quorvel::cm {

// A process that has registered. Its requests come on the sync socket; responses that take time, and
// indications, are pushed on the async socket.
struct Client {
    uint32_t id = 0;
    int32_t app_id = 0;
    Peer peer;
    Connection* sync = nullptr;
    Connection* async = nullptr;
    // Pushed before the async socket was there.
    std::vector<Message> waiting;
    size_t waiting_bytes = 0;
    bool loses_events = false;
    bool wants_tunnel_indications = false;
};

// "client 3 (process 4711)".
log::Subject describe(const Client& client);

class Clients {
  public:
    explicit Clients(size_t limit) : limit_(limit) {}

    // Null when there are too many.
    Client* add(Connection& sync, int32_t app_id);
    void remove(uint32_t id);
    // Null when the id is not known, belongs to another process, or has its async socket already.
    Client* attach(Connection& async, uint32_t id);
    // Sends what has waited for the async socket that is there now.
    static void push_waiting(Client& client);
    void detach(uint32_t id);

    Client* find(uint32_t id);
    // Whether the id was a client's that is not there any more. Ids are not given twice.
    bool has_gone(uint32_t id) { return id != 0 && id <= last_id_ && find(id) == nullptr; }
    const std::map<uint32_t, Client>& all() const { return clients_; }

    // Sends on the async socket, at once or as soon as it is there. A client that has gone is skipped.
    void push(uint32_t id, Message message);

    uint32_t next_tunnel_request() { return ++last_tunnel_request_; }

  private:
    size_t limit_;
    uint32_t last_id_ = 0;
    uint32_t last_tunnel_request_ = 0;
    std::map<uint32_t, Client> clients_;
};

}  // namespace quorvel::cm
