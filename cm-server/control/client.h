// The other end of the operator's socket.
#pragma once

#include <functional>
#include <memory>
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

// What a server tells whoever watches it, line by line.
class ServerWatch {
  public:
    // Throws AskError when there is no server on `socket`.
    explicit ServerWatch(const std::string& socket);
    ~ServerWatch();
    ServerWatch(const ServerWatch&) = delete;
    ServerWatch& operator=(const ServerWatch&) = delete;

    enum class End { kServerGone, kStopped };
    // Calls `each` with whole lines, several at a time, until the server goes or `stop`, a descriptor, is
    // readable.
    End run(int stop, const std::function<void(const std::string& lines)>& each);

    class Socket;

  private:
    std::unique_ptr<Socket> socket_;
};

}  // namespace quorvel::cm
