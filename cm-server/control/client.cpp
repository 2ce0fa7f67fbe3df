#include "control/client.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <vector>

#include "control/place.h"
#include "monitor/decode.h"

namespace quorvel::cm {
namespace {

constexpr int kPatienceMs = 10000;

class Socket {
  public:
    explicit Socket(const std::string& server) {
        std::vector<std::string> tried;
        fd_ = connect_to_control(server, tried);
        if (fd_ >= 0)
            return;
        std::string text =
            "no operator's socket of a server on " + server + " answers: " + std::strerror(errno);
        for (const std::string& path : tried)
            text += "\n  tried " + path;
        throw AskError(text);
    }
    ~Socket() { close(fd_); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    void write(std::string_view text) {
        while (!text.empty()) {
            wait(POLLOUT, kPatienceMs);
            const ssize_t sent = send(fd_, text.data(), text.size(), MSG_NOSIGNAL);
            if (sent < 0)
                throw AskError(std::string("the server takes no command: ") + std::strerror(errno));
            text.remove_prefix(static_cast<size_t>(sent));
        }
    }

    // The next line, or nothing when the server has closed. A negative patience has no end.
    std::optional<std::string> read_line(int patience) {
        std::array<char, 4096> piece;
        size_t end = 0;
        while ((end = rest_.find('\n')) == std::string::npos) {
            wait(POLLIN, patience);
            const ssize_t got = read(fd_, piece.data(), piece.size());
            if (got <= 0)
                return std::nullopt;
            rest_.append(piece.data(), static_cast<size_t>(got));
        }
        std::string line = rest_.substr(0, end);
        rest_.erase(0, end + 1);
        return line;
    }

  private:
    void wait(short event, int patience) const {
        pollfd waiting{fd_, event, 0};
        if (poll(&waiting, 1, patience) == 0)
            throw AskError("the server does not answer");
    }

    int fd_ = -1;
    std::string rest_;
};

nlohmann::json exchange(Socket& server, const nlohmann::json& command) {
    server.write(command.dump() + "\n");
    const auto line = server.read_line(kPatienceMs);
    if (!line)
        throw AskError("the server has closed the connection; only its own user and root may control it");
    nlohmann::json answer = nlohmann::json::parse(*line);
    if (!answer.at("ok").get<bool>())
        throw AskError(answer.at("error").get<std::string>());
    return answer;
}

}  // namespace

nlohmann::json ask_server(const std::string& socket, const nlohmann::json& command) {
    Socket server(socket);
    return exchange(server, command);
}

void watch_server(const std::string& socket, const std::function<void(const nlohmann::json& passing)>& each) {
    Socket server(socket);
    exchange(server, {{"command", "monitor"}});
    constexpr int kWithoutEnd = -1;
    while (const auto line = server.read_line(kWithoutEnd))
        each(decoded(nlohmann::json::parse(*line)));
}

}  // namespace quorvel::cm
