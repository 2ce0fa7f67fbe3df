// A server that gives a record's answers.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "connection.h"
#include "events.h"
#include "keeper.h"
#include "listening_socket.h"
#include "monitor/casting.h"
#include "monitor/player.h"

namespace quorvel::cm {

struct ReplayOptions {
    double speed = 1.0;  // 0: nobody waits
    bool once = false;   // until every recorded client has come and gone
};

// Serves clients in the parts of the recorded ones, many at a time, and prints where they ask something else.
class Replayer : private Connection::Handler {
  public:
    // Throws SocketPathError.
    Replayer(const std::string& socket, Lives lives, const ReplayOptions& options);

    // Until it is asked to end. Prints what the clients did otherwise; false when there is something.
    bool run();

  private:
    void accept(AcceptedSocket socket);
    void register_client(Connection& connection, const Request& request);
    void attach_client(Connection& connection, const Request& request);
    uint32_t free_id(uint32_t wanted) const;
    bool verdict();

    void on_request(Connection& connection, const Request& request) override;
    void on_send(Connection& connection, const Message& message) override;
    void on_closed(Connection& connection, std::string_view why) override;

    EventBase base_;
    Lives lives_;
    bool once_;
    Play play_;
    Casting casting_;
    std::vector<std::string> otherwise_;
    size_t clients_ = 0;
    size_t requests_ = 0;
    Holdings holdings_;
    std::map<uint32_t, std::unique_ptr<Player>> players_;
    Keeper<Connection> connections_;
    ListeningSocket socket_;
    EndSignals end_;
};

}  // namespace quorvel::cm
