// The operator's socket: one line of JSON per command, one line of JSON per answer.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "connection.h"
#include "events.h"
#include "keeper.h"
#include "listening_socket.h"
#include "monitor/tap.h"

namespace quorvel::cm {

// A command that cannot be carried out; what() says why, for the operator.
class ControlError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Control {
  public:
    // Carries a command out and gives {"text": ..., "data": ...}; throws ControlError.
    using Execute = std::function<nlohmann::json(const nlohmann::json& command)>;

    // The command "monitor" makes a session a watcher of the tap. Throws SocketPathError.
    Control(event_base* base, const std::string& path, Tap& tap, Execute execute);
    ~Control();

  private:
    class Session;
    void accept(AcceptedSocket socket);

    event_base* base_;
    Tap& tap_;
    Execute execute_;
    Keeper<Session> sessions_;
    ListeningSocket socket_;
};

// The server's own user, and root.
bool may_control(const Peer& peer);

}  // namespace quorvel::cm
