// The other end of the operator's socket.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace quorvel::cm {

// The server is not there, or has refused; what() says why.
class AskError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Sends a command to the server that serves on `socket` and gives its answer. Throws AskError.
nlohmann::json ask_server(const std::string& socket, const nlohmann::json& command);

// Calls `each` for everything that passes between the server and its clients, until the server goes. Throws
// AskError.
void watch_server(const std::string& socket, const std::function<void(const nlohmann::json& passing)>& each);

}  // namespace quorvel::cm
