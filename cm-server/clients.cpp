#include "clients.h"

#include <utility>

namespace quorvel::cm {
namespace {

// A client without an async socket cannot read; what waits for it must not grow without end.
constexpr size_t kMaxWaitingBytes = size_t{256} * 1024;

void keep_waiting(Client& client, Message message) {
    const size_t bytes = sizeof(message.record) + message.block.size();
    const size_t all = client.waiting_bytes + bytes;
    if (all <= kMaxWaitingBytes && client.sync->keep(all)) {
        client.waiting.push_back(std::move(message));
        client.waiting_bytes = all;
    } else if (!std::exchange(client.loses_events, true)) {
        log::warning(describe(client), " loses events, there is no async socket to send them on");
    }
}

}  // namespace

log::Subject describe(const Client& client) {
    return {"client " + std::to_string(client.id) + " (process " + std::to_string(client.peer.pid) + ")",
            {{"client", client.id}, {"process", client.peer.pid}}};
}

Client* Clients::add(Connection& sync, int32_t app_id) {
    if (clients_.size() >= limit_)
        return nullptr;
    const uint32_t id = ++last_id_;
    Client& client = clients_[id];
    client.id = id;
    client.app_id = app_id;
    client.peer = sync.peer();
    client.sync = &sync;
    sync.assign(Connection::Role::kSync, id);
    return &client;
}

void Clients::remove(uint32_t id) {
    clients_.erase(id);
}

Client* Clients::attach(Connection& async, uint32_t id) {
    Client* client = find(id);
    if (client == nullptr || client->async != nullptr || client->peer != async.peer())
        return nullptr;
    client->async = &async;
    async.assign(Connection::Role::kAsync, id);
    return client;
}

void Clients::push_waiting(Client& client) {
    for (const Message& message : std::exchange(client.waiting, {}))
        client.async->send(message);
    client.waiting_bytes = 0;
    (void)client.sync->keep(0);
    client.loses_events = false;
}

void Clients::detach(uint32_t id) {
    if (Client* client = find(id))
        client->async = nullptr;
}

Client* Clients::find(uint32_t id) {
    const auto found = clients_.find(id);
    return found == clients_.end() ? nullptr : &found->second;
}

void Clients::push(uint32_t id, Message message) {
    Client* client = find(id);
    if (client == nullptr)
        return;
    if (client->async != nullptr)
        client->async->send(message);
    else
        keep_waiting(*client, std::move(message));
}

}  // namespace quorvel::cm
