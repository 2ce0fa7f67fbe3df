#include "Server.h"

#include <arpa/inet.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>
#include <vector>

#include "Measure.h"
#include "Responder.h"

namespace quorvel::bench {
namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_un server_address() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, wire::kServerPath);
    return address;
}

int listen_at_server_path() {
    const sockaddr_un address = server_address();
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    unlink(wire::kServerPath);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd, 64) != 0)
        fail("the server's socket");
    return fd;
}

class Loop {
  public:
    explicit Loop(int listener) : fds_{{listener, POLLIN, 0}} {}

    [[noreturn]] void run() {
        for (;;) {
            if (poll(fds_.data(), fds_.size(), -1) < 0)
                continue;
            // In the order of their arrival: a registration has no answer that its sender could wait for.
            for (size_t i = 1; i < fds_.size(); ++i)
                if (fds_[i].revents != 0 && !serve(fds_[i].fd))
                    fds_[i].fd = -1;
            std::erase_if(fds_, [](const pollfd& connection) { return connection.fd < 0; });
            if (fds_[0].revents != 0)
                fds_.push_back({accept(fds_[0].fd, nullptr, nullptr), POLLIN, 0});
        }
    }

  private:
    // False when the connection has ended.
    bool serve(int fd) {
        wire::RequestHeader request;
        if (read(fd, &request, sizeof request) == sizeof request) {
            answer(fd, request);
            return true;
        }
        close(fd);
        if (fd == async_fd_)
            async_fd_ = -1;
        return false;
    }

    void answer(int fd, const wire::RequestHeader& request) {
        wire::Record record{};
        switch (request.Command) {
            case wire::NETCM_CLIENT_ASYNC_REGISTER_REQ:
                async_fd_ = fd;
                bring_up();
                return;
            case kBecomePushTarget:
                anchor_fd_ = fd;
                break;
            case kPush:
                push(fd, request.Arg3 == 0 ? async_fd_ : anchor_fd_, request.Param);
                return;
            case wire::NETCM_CLIENT_REGISTER_REQ:
                record.Word1 = 7;
                break;
            case wire::NETCM_CLIENT_START_REQ:
                starting_ = request.Arg4;
                break;
            default:
                break;
        }
        const wire::CommandEntry* command = wire::find_command(request.Command);
        record.Code = command != nullptr ? command->answer : 0;
        write_all(fd, &record, sizeof record);
        bring_up();
    }

    // Tells the client that its call, number 0, is up: on the loopback device, with a name server. The socket
    // for that may be registered after the request for the call has been read.
    void bring_up() {
        if (async_fd_ < 0 || starting_ == 0)
            return;
        struct {
            wire::Record event;
            wire::ConnectionBlock connection;
        } up{};
        up.event.Code = wire::NETCM_CLIENT_START_RSP;
        up.event.Word2 = std::exchange(starting_, 0);
        up.connection.DnsCount = 1;
        inet_pton(AF_INET, kNameServer, up.connection.DnsAddr[0].Addr);
        strcpy(up.connection.IfaceName, "lo");
        write_all(async_fd_, &up, sizeof up);
    }

    static void push(int control, int target, uint32_t times) {
        wire::Record event{};
        event.Code = wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND;
        wire::RequestHeader acknowledgement;
        const int64_t start = now_ns();
        for (uint32_t i = 0; i < times; ++i) {
            write_all(target, &event, sizeof event);
            read_all(control, &acknowledgement, sizeof acknowledgement);
        }
        const auto took = static_cast<uint64_t>(now_ns() - start);
        wire::Record done{};
        done.Word1 = static_cast<uint32_t>(took);
        done.Word2 = static_cast<uint32_t>(took >> 32);
        write_all(control, &done, sizeof done);
    }

    std::vector<pollfd> fds_;
    int async_fd_ = -1;
    uint32_t starting_ = 0;  // the profile of a call that has been asked for and is not up yet
    int anchor_fd_ = -1;
};

}  // namespace

Server::Server() {
    const int listener = listen_at_server_path();
    pid_ = start_helper([listener] { Loop(listener).run(); });
    close(listener);
}

Server::~Server() {
    end_helper(pid_);
}

int connect_to_server() {
    const sockaddr_un address = server_address();
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        fail("connecting to the server");
    return fd;
}

void write_all(int fd, const void* data, size_t size) {
    if (write(fd, data, size) != static_cast<ssize_t>(size))
        fail("write");
}

void read_all(int fd, void* data, size_t size) {
    size_t total = 0;
    while (total < size) {
        const ssize_t got = read(fd, static_cast<char*>(data) + total, size - total);
        if (got <= 0)
            fail("read");
        total += static_cast<size_t>(got);
    }
}

pid_t start_helper(const std::function<void()>& body) {
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0)
        fail("fork");
    if (pid != 0)
        return pid;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(0);
    try {
        body();
    } catch (const std::exception& failure) {
        fprintf(stderr, "quorvel-bench: a helper: %s\n", failure.what());
    }
    _exit(1);
}

void end_helper(pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

}  // namespace quorvel::bench
