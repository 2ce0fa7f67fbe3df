// The operator's socket: one line of JSON per command, one line of JSON per answer.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "events.h"
#include "monitor/tap.h"
#include "socket_path.h"

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
    void accept(evutil_socket_t fd);
    void end(Session* session);

    event_base* base_;
    SocketPath path_;
    Tap& tap_;
    Execute execute_;
    std::map<Session*, std::unique_ptr<Session>> sessions_;
    std::vector<std::unique_ptr<Session>> ended_;
    Timer bury_;
    Listener listener_;
};

// Where the operator's socket is, beside the main one.
std::string control_path(const std::string& socket);

}  // namespace quorvel::cm
