#include "Server.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "support/ServerSocket.h"

namespace quorvel::lives {

using std::chrono::microseconds;
using test::checked;

Server::Server(Model& model, uint64_t seed)
    : model_(model),
      random_(seed, 1000),
      calls_(model, random_, outbox_),
      answers_(model, random_, calls_, outbox_),
      deaths_left_(model.has(kDeaths) ? random_.between(1, 3) : 0),
      listener_(test::listen_at(wire::kServerPath)),
      wake_(checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      thread_([this] { serve(); }) {}

Server::~Server() {
    stops_ = true;
    eventfd_write(wake_, 1);
    thread_.join();
    for (const SocketPtr& socket : sockets_)
        close(socket->fd);
    if (listener_ >= 0)
        close(listener_);
    close(wake_);
    unlink(wire::kServerPath);
}

void Server::come_to_rest() {
    to_rest_ = true;
    eventfd_write(wake_, 1);
}

void Server::broadcast() {
    is_done_ = false;
    ++broadcasts_;
    eventfd_write(wake_, 1);
}

void Server::serve() {
    while (!stops_) {
        if (away_ && (is_at_rest() || std::chrono::steady_clock::now() >= back_at_))
            come_back();
        wait_for_something();
        if (away_)
            continue;
        for (; broadcasts_ > 0; --broadcasts_)
            calls_.push_broadcast();
        calls_.tick(is_at_rest(), !is_behind());
        push_some();
        is_done_ = is_at_rest() && broadcasts_ == 0 && !calls_.is_anything_starting() &&
                   (outbox_.empty() || async_socket() == nullptr);
    }
}

// Until a request, an order, or the next moment at which something may happen by itself.
void Server::wait_for_something() {
    std::vector<pollfd> waiting = {{wake_, POLLIN, 0}};
    const std::vector<SocketPtr> served = sockets_;
    if (!away_) {
        waiting.push_back({listener_, POLLIN, 0});
        for (const SocketPtr& socket : served)
            waiting.push_back({socket->fd, POLLIN, 0});
    }
    timespec patience{0, 1000L * random_.between(50, 300)};
    const bool is_pending = broadcasts_ > 0 || !outbox_.empty() || calls_.is_anything_starting();
    const bool restless = away_ || is_pending || (is_at_rest() ? !is_done_ : !sockets_.empty());
    ppoll(waiting.data(), waiting.size(), restless ? &patience : nullptr, nullptr);
    if (waiting[0].revents != 0) {
        eventfd_t ignored = 0;
        eventfd_read(wake_, &ignored);
    }
    if (away_)
        return;
    if (waiting[1].revents != 0)
        accept_one();
    for (size_t i = 0; i < served.size(); ++i)
        if (waiting[i + 2].revents != 0 && read_from(served[i]) == Ends::Dies)
            return;
}

void Server::wait_a_little(int least_microseconds, int most_microseconds) {
    pollfd woken{wake_, POLLIN, 0};
    const timespec time{0, 1000L * random_.between(least_microseconds, most_microseconds)};
    ppoll(&woken, 1, &time, nullptr);
}

void Server::accept_one() {
    const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0)
        sockets_.push_back(std::make_shared<Socket>(Socket{fd}));
}

Server::Ends Server::read_from(const SocketPtr& socket) {
    if (std::find(sockets_.begin(), sockets_.end(), socket) == sockets_.end())
        return Ends::Lives;
    std::array<std::byte, 65536> part;
    const ssize_t got = recv(socket->fd, part.data(), part.size(), MSG_DONTWAIT);
    if (got < 0 && errno == EAGAIN)
        return Ends::Lives;
    if (got <= 0) {
        if (socket->link != 0) {
            close_link(socket->link);
        } else {
            close(socket->fd);
            std::erase(sockets_, socket);
        }
        return Ends::Lives;
    }
    socket->received.insert(socket->received.end(), part.begin(), part.begin() + got);
    while (const auto request = test::take_request(socket->received))
        if (take(socket, *request) == Ends::Dies)
            return Ends::Dies;
    return Ends::Lives;
}

// Both of its sockets, and everything that was to be pushed.
void Server::close_link(int link) {
    std::erase_if(sockets_, [&](const SocketPtr& socket) {
        if (socket->link != link)
            return false;
        close(socket->fd);
        return true;
    });
    model_.client_closes(link);
    if (link != model_.truth().link())
        return;
    outbox_.clear();
    calls_.forget();
}

Server::Ends Server::take(const SocketPtr& socket, const test::Request& request) {
    if (is_its_time() && random_.one_in(2))
        return die();
    if (is_slow())
        wait_a_little(50, 600);
    switch (request.command()) {
        case wire::NETCM_CLIENT_REGISTER_REQ: {
            register_client(socket);
            wire::Record record = test::answer_record(request.command());
            record.Word1 = static_cast<uint32_t>(socket->link);
            return answer(socket, test::bytes_of(record));
        }
        case wire::NETCM_CLIENT_ASYNC_REGISTER_REQ:
            socket->link = static_cast<int>(request.header.ClientId);
            socket->is_async = true;
            return Ends::Lives;
        default:
            break;
    }
    if (socket->link == 0 || socket->is_async)
        model_.object("a request arrives on a socket that is not registered for requests");
    // A client that has registered anew since can only have left this behind.
    if (socket->link != model_.truth().link())
        return Ends::Lives;
    const test::Bytes bytes = answers_.answer(request);
    // What is pushed may well be there before the answer is.
    if (random_.one_in(3) && push_some() == Ends::Dies)
        return Ends::Dies;
    return bytes.empty() ? Ends::Lives : answer(socket, bytes);
}

void Server::register_client(const SocketPtr& socket) {
    socket->link = model_.link_begins();
    outbox_.clear();
    calls_.forget();
}

Server::Ends Server::answer(const SocketPtr& socket, const test::Bytes& bytes) {
    if (is_its_time()) {
        test::write_all(socket->fd, bytes.data(),
                        static_cast<size_t>(random_.below(static_cast<int>(bytes.size()) + 1)));
        return die();
    }
    write(socket->fd, bytes, 0);
    return Ends::Lives;
}

// At once, or in pieces with pauses between them; what comes before `from` is one piece in any case.
void Server::write(int fd, const test::Bytes& bytes, size_t from) {
    size_t sent = 0;
    while (is_slow() && bytes.size() - std::max(sent, from) > 1) {
        const size_t first = std::max(sent, from);
        const size_t end = first + static_cast<size_t>(random_.below(static_cast<int>(bytes.size() - first)));
        test::write_all(fd, bytes.data() + sent, end - sent);
        sent = end;
        wait_a_little(50, 400);
    }
    test::write_all(fd, bytes.data() + sent, bytes.size() - sent);
}

Server::Socket* Server::async_socket() {
    for (const SocketPtr& socket : sockets_)
        if (socket->is_async && socket->link == model_.truth().link())
            return socket.get();
    return nullptr;
}

// How much the client has still to read. One that asks from a callback reads nothing meanwhile.
size_t Server::unread() {
    int bytes = 0;
    if (const Socket* socket = async_socket(); socket == nullptr || ioctl(socket->fd, SIOCOUTQ, &bytes) != 0)
        return 0;
    return static_cast<size_t>(bytes);
}

// Who is told more than he can deal with never comes to an end.
bool Server::is_behind() {
    constexpr size_t kParcels = 20;
    constexpr size_t kBytes = 8192;
    return outbox_.size() > kParcels || unread() > kBytes;
}

Server::Ends Server::push_some() {
    constexpr size_t kRoom = 65536;
    while (!outbox_.empty() && async_socket() != nullptr && unread() < kRoom) {
        if (is_disorderly() && random_.one_in(2))
            return Ends::Lives;
        if (push(is_disorderly() ? outbox_.take_any(random_) : outbox_.take_first()) == Ends::Dies)
            return Ends::Dies;
    }
    return Ends::Lives;
}

// A record is written in one piece, since the library takes what is there for the whole of it; what follows
// it need not be.
Server::Ends Server::push(const Parcel& parcel) {
    const int fd = async_socket()->fd;
    const bool has_block =
        parcel.pushed.what == Pushed::What::Start || parcel.pushed.what == Pushed::What::Change;
    model_.pushes(parcel.pushed);
    if (has_block && is_its_time()) {
        test::write_all(fd, parcel.bytes.data(),
                        static_cast<size_t>(random_.below(static_cast<int>(parcel.bytes.size()))));
        return die();
    }
    write(fd, parcel.bytes, sizeof(wire::Record));
    return is_its_time() ? die() : Ends::Lives;
}

bool Server::is_its_time() {
    return deaths_left_ > 0 && !is_at_rest() && random_.one_in(40);
}

Server::Ends Server::die() {
    --deaths_left_;
    model_.dies();
    unlink(wire::kServerPath);
    close(listener_);
    listener_ = -1;
    for (const SocketPtr& socket : sockets_)
        close(socket->fd);
    sockets_.clear();
    outbox_.clear();
    calls_.forget();
    away_ = true;
    back_at_ = std::chrono::steady_clock::now() + microseconds(random_.below(3) * random_.below(1000));
    return Ends::Dies;
}

void Server::come_back() {
    listener_ = test::listen_at(wire::kServerPath);
    away_ = false;
    model_.is_back();
}

}  // namespace quorvel::lives
