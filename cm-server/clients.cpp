#include "clients.h"

#include "log.h"

namespace quorvel::cm {
namespace {

// A client without an async socket cannot read; what waits for it must not grow without end.
constexpr size_t kMaxWaitingBytes = size_t{256} * 1024;

bool has_room_for(const Client& client, const Message& message) {
    size_t bytes = sizeof(message.record) + message.block.size();
    for (const Message& waiting : client.waiting)
        bytes += sizeof(waiting.record) + waiting.block.size();
    return bytes <= kMaxWaitingBytes;
}

}  // namespace

std::string describe(const Client& client) {
    return "client " + std::to_string(client.id) + " (process " + std::to_string(client.peer.pid) + ")";
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
    for (const Message& message : client->waiting)
        async.send(message);
    client->waiting.clear();
    return client;
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
    else if (has_room_for(*client, message))
        client->waiting.push_back(std::move(message));
    else
        log::warning(describe(*client), ": an event is lost, there is no async socket to send it on");
}

}  // namespace quorvel::cm
