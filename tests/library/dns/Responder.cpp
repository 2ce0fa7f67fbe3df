#include "Responder.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace quorvel::test::dns {
namespace {

constexpr uint16_t kPort = 53;

sockaddr_in endpoint(const char* address, uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    if (inet_pton(AF_INET, address, &result.sin_addr) != 1)
        throw std::invalid_argument(address);
    return result;
}

int bound_socket(const char* address, uint16_t port) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in where = endpoint(address, port);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&where), sizeof where) != 0)
        throw std::system_error(errno, std::generic_category(), address);
    return fd;
}

void send_to(int fd, const sockaddr_in& client, const Bytes& datagram) {
    sendto(fd, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&client),
           sizeof client);
}

}  // namespace

void Exchange::reply(const Bytes& datagram) const {
    send_to(fd_, client_, datagram);
}

void Exchange::reply_from(const char* address, uint16_t port, const Bytes& datagram) const {
    const int fd = bound_socket(address, port);
    send_to(fd, client_, datagram);
    close(fd);
}

Responder::Responder(Script script, const char* address)
    : script_(std::move(script)),
      fd_(bound_socket(address, kPort)),
      stop_fd_(eventfd(0, EFD_CLOEXEC)),
      thread_([this] { serve(); }) {}

Responder::~Responder() {
    const uint64_t one = 1;
    if (write(stop_fd_, &one, sizeof one) != sizeof one)
        std::terminate();
    thread_.join();
    close(stop_fd_);
    close(fd_);
}

void Responder::serve() {
    for (;;) {
        pollfd waiting[] = {{fd_, POLLIN, 0}, {stop_fd_, POLLIN, 0}};
        poll(waiting, 2, -1);
        if (waiting[1].revents != 0)
            return;
        serve_one();
    }
}

void Responder::serve_one() {
    Bytes query(1024);
    sockaddr_in client{};
    socklen_t length = sizeof client;
    const ssize_t received = recvfrom(fd_, query.data(), query.size(), MSG_DONTWAIT,
                                      reinterpret_cast<sockaddr*>(&client), &length);
    if (received < 0)
        return;
    query.resize(static_cast<size_t>(received));
    {
        const std::lock_guard lock(mutex_);
        queries_.push_back(query);
        senders_.push_back(ntohs(client.sin_port));
    }
    script_(Exchange(fd_, client, std::move(query)));
}

std::vector<Bytes> Responder::queries() const {
    const std::lock_guard lock(mutex_);
    return queries_;
}

std::vector<uint16_t> Responder::senders() const {
    const std::lock_guard lock(mutex_);
    return senders_;
}

Responder::Script answer_with(const char* address, uint32_t ttl) {
    return [=](const Exchange& exchange) {
        exchange.reply(
            Response(exchange.query).record(pointer_to(kQuestionAt), kA, kIn, ttl, address_bytes(address)));
    };
}

Responder::Script silence() {
    return [](const Exchange&) {};
}

std::string asked_name(const Bytes& query) {
    std::string name;
    for (size_t at = kQuestionAt; query.at(at) != 0; at += query[at] + 1u) {
        if (!name.empty())
            name += '.';
        name.append(query.begin() + static_cast<long>(at) + 1,
                    query.begin() + static_cast<long>(at) + 1 + query[at]);
    }
    return name;
}

}  // namespace quorvel::test::dns
