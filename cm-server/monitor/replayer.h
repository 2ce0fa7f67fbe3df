// A server that gives a recorded session's answers.
#pragma once

#include <string>
#include <vector>

#include "connection.h"
#include "events.h"
#include "keeper.h"
#include "listening_socket.h"
#include "monitor/session.h"

namespace quorvel::cm {

// Serves one client after another, each from the start of the session, and prints where a client asks
// something else than was recorded.
class Replayer : private Connection::Handler {
  public:
    // Throws SocketPathError.
    Replayer(const std::string& socket, std::vector<SessionEntry> session);

    // Until SIGTERM or SIGINT.
    void run();

  private:
    void accept(evutil_socket_t fd);
    void compare(const Request& request);
    // Everything that followed the request in the session, up to the next request.
    void give();
    void give_to_async(const SessionEntry& entry);

    void on_request(Connection& connection, const Request& request) override;
    void on_send(Connection& connection, const Message& message) override;
    void on_closed(Connection& connection, const std::string& why) override;

    EventBase base_;
    std::vector<SessionEntry> session_;
    size_t next_ = 0;
    Connection* sync_ = nullptr;
    Connection* async_ = nullptr;
    std::vector<std::vector<std::byte>> waiting_;
    Holdings holdings_;
    Keeper<Connection> connections_;
    ListeningSocket socket_;
    EndSignals end_;
};

}  // namespace quorvel::cm
