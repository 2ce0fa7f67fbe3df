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

namespace quorvel::cm {
namespace {

constexpr int kPatienceMs = 10000;

}  // namespace

class ServerWatch::Socket {
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

    int fd() const { return fd_; }
    // All whole lines that have arrived; nothing when the server has closed.
    std::optional<std::string> read_lines() {
        std::array<char, 65536> piece;
        const ssize_t got = read(fd_, piece.data(), piece.size());
        if (got <= 0)
            return std::nullopt;
        rest_.append(piece.data(), static_cast<size_t>(got));
        return take_lines();
    }
    std::string take_lines() {
        const size_t end = rest_.rfind('\n') + 1;
        std::string lines = rest_.substr(0, end);
        rest_.erase(0, end);
        return lines;
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

namespace {

using Socket = ServerWatch::Socket;

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

ServerWatch::ServerWatch(const std::string& socket) : socket_(std::make_unique<Socket>(socket)) {
    exchange(*socket_, {{"command", "monitor"}});
}

ServerWatch::~ServerWatch() = default;

ServerWatch::End ServerWatch::run(int stop, const std::function<void(const std::string& lines)>& each) {
    // What has come with the answer.
    if (const std::string first = socket_->take_lines(); !first.empty())
        each(first);
    for (;;) {
        std::array<pollfd, 2> ready{pollfd{stop, POLLIN, 0}, pollfd{socket_->fd(), POLLIN, 0}};
        poll(ready.data(), ready.size(), -1);
        if (ready[0].revents != 0)
            return End::kStopped;
        if (ready[1].revents == 0)
            continue;
        const auto lines = socket_->read_lines();
        if (!lines)
            return End::kServerGone;
        if (!lines->empty())
            each(*lines);
    }
}

}  // namespace quorvel::cm
