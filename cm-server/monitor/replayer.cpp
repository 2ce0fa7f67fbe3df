#include "monitor/replayer.h"

#include <algorithm>
#include <cstdio>

#include "log.h"

namespace quorvel::cm {
namespace {

void print(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

std::string counted(size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

Replayer::Replayer(const std::string& socket, Lives lives, const ReplayOptions& options)
    : base_(make_event_base()),
      lives_(std::move(lives)),
      once_(options.once),
      play_{lives_, options.speed, [](const std::string& words) { print(words); },
            [this](const std::string& words) {
                print(words);
                otherwise_.push_back(words);
            }},
      casting_(lives_.all),
      connections_(base_.get()),
      socket_(base_.get(), socket, kEveryUser,
              [this](AcceptedSocket accepted) { accept(std::move(accepted)); }),
      end_(base_.get(), [this](const char*) { event_base_loopbreak(base_.get()); }) {}

bool Replayer::run() {
    size_t messages = 0;
    for (const Life& life : lives_.all)
        messages += life.steps.size();
    log::info("listening on ", socket_.path(), " with ", counted(messages, "message"), " of ",
              counted(lives_.all.size(), "client"));
    if (lives_.lost > 0)
        log::warning("the record has lost ", lives_.lost,
                     " entries; where they are missing, clients may be served "
                     "otherwise");
    event_base_dispatch(base_.get());
    return verdict();
}

void Replayer::accept(AcceptedSocket socket) {
    Connection::Handler& handler = *this;
    connections_.add(
        std::make_unique<Connection>(base_.get(), std::move(socket), ConnectionLimits{}, holdings_, handler));
}

void Replayer::on_request(Connection& connection, const Request& request) {
    const bool known = connection.role() != Connection::Role::kNone;
    if (request.header.Command == wire::NETCM_CLIENT_REGISTER_REQ && !known)
        return register_client(connection, request);
    if (request.header.Command == wire::NETCM_CLIENT_ASYNC_REGISTER_REQ && !known)
        return attach_client(connection, request);
    const auto player = players_.find(connection.client_id());
    if (connection.role() != Connection::Role::kSync || player == players_.end())
        return connection.close("it asks on a socket that has not registered");
    ++requests_;
    player->second->ask(request);
}

void Replayer::register_client(Connection& connection, const Request& request) {
    const Life& life =
        lives_.all[casting_.choose(connection.peer().pid, static_cast<int32_t>(request.header.Arg5))];
    const uint32_t id = free_id(life.client);
    connection.assign(Connection::Role::kSync, id);
    ++clients_;
    print("process " + std::to_string(connection.peer().pid) + " takes the part of " + life.name());
    auto player = std::make_unique<Player>(base_.get(), play_, life, id, connection);
    Player& here = *player;
    players_[id] = std::move(player);
    here.register_now();
}

// The recorded id, unless somebody else has it.
uint32_t Replayer::free_id(uint32_t wanted) const {
    if (!players_.contains(wanted))
        return wanted;
    uint32_t id = players_.rbegin()->first;
    for (const Life& life : lives_.all)
        id = std::max(id, life.client);
    return id + 1;
}

void Replayer::attach_client(Connection& connection, const Request& request) {
    const auto player = players_.find(request.header.ClientId);
    if (player == players_.end() || player->second->async() != nullptr)
        return connection.close("it offers an async socket for a client which it is not");
    connection.assign(Connection::Role::kAsync, player->first);
    player->second->attach(connection);
}

void Replayer::on_send(Connection&, const Message&) {}

void Replayer::on_closed(Connection& connection, std::string_view) {
    const auto player = players_.find(connection.client_id());
    if (player != players_.end() && connection.role() == Connection::Role::kAsync)
        player->second->detach();
    if (player != players_.end() && connection.role() == Connection::Role::kSync) {
        Connection* async = player->second->async();
        player->second->leave();
        players_.erase(player);
        if (async != nullptr)
            async->close("its client has gone");
    }
    connections_.remove(connection);
    if (once_ && players_.empty() && casting_.left().empty())
        event_base_loopbreak(base_.get());
}

bool Replayer::verdict() {
    for (const auto& [id, player] : players_)
        player->leave();
    for (const size_t life : casting_.left())
        play_.otherwise(lives_.all[life].name() + ": nobody has taken its part");
    if (otherwise_.empty()) {
        print("as in the record: " + counted(clients_, "client") + ", " + counted(requests_, "request"));
        return true;
    }
    print("otherwise than in the record, " + counted(otherwise_.size(), "time") + ":");
    for (const std::string& words : otherwise_)
        print("  " + words);
    return false;
}

}  // namespace quorvel::cm
