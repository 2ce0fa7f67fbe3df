// The other end of the operator's socket.
#pragma once

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

}  // namespace quorvel::cm
