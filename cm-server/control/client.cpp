#include "control/client.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "control/control.h"
#include "socket_path.h"

namespace quorvel::cm {
namespace {

constexpr int kPatienceMs = 10000;

class Socket {
  public:
    explicit Socket(const std::string& path) : fd_(connect_to(path)) {
        if (fd_ < 0)
            throw AskError("no server answers on " + path + ": " + std::strerror(errno));
    }
    ~Socket() { close(fd_); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    void write(std::string_view text) {
        while (!text.empty()) {
            wait(POLLOUT);
            const ssize_t sent = send(fd_, text.data(), text.size(), MSG_NOSIGNAL);
            if (sent < 0)
                throw AskError(std::string("the server takes no command: ") + std::strerror(errno));
            text.remove_prefix(static_cast<size_t>(sent));
        }
    }

    std::string read_line() {
        std::string line;
        std::array<char, 4096> piece;
        while (line.empty() || line.back() != '\n') {
            wait(POLLIN);
            const ssize_t got = read(fd_, piece.data(), piece.size());
            if (got <= 0)
                throw AskError(
                    "the server has closed the connection; only its own user and root may control it");
            line.append(piece.data(), static_cast<size_t>(got));
        }
        return line;
    }

  private:
    void wait(short event) const {
        pollfd waiting{fd_, event, 0};
        if (poll(&waiting, 1, kPatienceMs) == 0)
            throw AskError("the server does not answer");
    }

    int fd_;
};

}  // namespace

nlohmann::json ask_server(const std::string& socket, const nlohmann::json& command) {
    Socket server(control_path(socket));
    server.write(command.dump() + "\n");
    nlohmann::json answer = nlohmann::json::parse(server.read_line());
    if (!answer.at("ok").get<bool>())
        throw AskError(answer.at("error").get<std::string>());
    return answer;
}

}  // namespace quorvel::cm
