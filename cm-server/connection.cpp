#include "connection.h"

#include <event2/buffer.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

#include "guard.h"

namespace quorvel::cm {

Peer peer_of(int fd) {
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return {0, static_cast<uid_t>(-1)};  // not reached: the system never says so
    return {credentials.pid, credentials.uid};
}

log::Subject describe(const Peer& peer) {
    return {"process " + std::to_string(peer.pid) + " of user " + std::to_string(peer.uid),
            {{"process", peer.pid}, {"user", peer.uid}}};
}

Connection::Connection(event_base* base, AcceptedSocket socket, const ConnectionLimits& limits,
                       Holdings& holdings, Handler& handler)
    : limits_(limits),
      handler_(handler),
      peer_(peer_of(socket.get())),
      share_(holdings, peer_.uid),
      socket_(buffered(base, std::move(socket))),
      stalled_(base,
               [this] {
                   close(reader_.pending() == 0 ? "it has never said who it is"
                                                : "it has left a request unfinished after " +
                                                      std::to_string(reader_.pending()) + " bytes");
               }),
      late_due_(base, [this] { put_out_late(); }),
      drop_(base, [this] { close(full_); }) {
    bufferevent_setcb(socket_.get(), &Connection::readable, &Connection::written, &Connection::changed, this);
    bufferevent_enable(socket_.get(), EV_READ | EV_WRITE);
    watch_for_stall();
}

void Connection::assign(Role role, uint32_t client_id) {
    role_ = role;
    client_id_ = client_id;
}

void Connection::send(const Message& message) noexcept {
    if (closed_)
        return;
    try {
        handler_.on_send(*this, message);
    } catch (const std::exception& error) {
        report_failure("the sending of an answer or event", words_of(error));
        drop_soon("what it is sent has failed");
    }
}

size_t Connection::held() const {
    return reader_.held() + evbuffer_get_length(bufferevent_get_output(socket_.get())) + late_bytes_ + kept_;
}

bool Connection::keep(size_t bytes) {
    if (!share_.grow_to(held() - kept_ + bytes))
        return false;
    kept_ = bytes;
    return true;
}

// Not at once: whoever answers a request still uses the client whose connection this is.
void Connection::drop_soon(const char* why) {
    if (closed_ || full_ != nullptr)
        return;
    full_ = why;
    drop_.start(std::chrono::milliseconds(0));
}

void Connection::write(std::vector<std::byte> bytes, std::chrono::milliseconds delay) {
    if (late_.empty() && delay == std::chrono::milliseconds(0))
        return put_out(bytes);
    auto due = std::chrono::steady_clock::now() + delay;
    if (!late_.empty())
        due = std::max(due, late_.back().due);
    late_bytes_ += bytes.size();
    late_.push_back({due, std::move(bytes)});
    if (!share_.grow_to(held()))
        drop_soon("too much waits for its user");
    if (!late_due_.running())
        late_due_.start(delay);
}

void Connection::put_out_late() {
    const auto now = std::chrono::steady_clock::now();
    while (!closed_ && !late_.empty() && late_.front().due <= now) {
        late_bytes_ -= late_.front().bytes.size();
        put_out(late_.front().bytes);
        late_.pop_front();
    }
    if (!closed_ && !late_.empty())
        late_due_.start(std::chrono::ceil<std::chrono::milliseconds>(late_.front().due - now));
}

// Mostly the socket takes everything, and the loop needs not come round for it. What it does not take, and
// any error, is left to the loop.
size_t Connection::put_out_at_once(const std::vector<std::byte>& bytes) {
    if (evbuffer_get_length(bufferevent_get_output(socket_.get())) > 0)
        return 0;
    const ssize_t sent =
        ::send(bufferevent_getfd(socket_.get()), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return sent < 0 ? 0 : static_cast<size_t>(sent);
}

// In one piece, so that a reader who takes a record with a single read gets it whole.
void Connection::put_out(const std::vector<std::byte>& bytes) {
    if (closed_ || full_ != nullptr)
        return;
    const size_t sent = put_out_at_once(bytes);
    if (sent == bytes.size())
        return;
    // A part of a record would put the other end out of step.
    if (bufferevent_write(socket_.get(), bytes.data() + sent, bytes.size() - sent) != 0)
        return drop_soon("there is no memory for what it is sent");
    if (evbuffer_get_length(bufferevent_get_output(socket_.get())) > limits_.unread_bytes)
        return drop_soon("it does not read what it is sent");
    if (!share_.grow_to(held()))
        drop_soon("it does not read what it is sent, and too much waits for its user");
}

void Connection::written(bufferevent*, void* connection) {
    auto& self = *static_cast<Connection*>(connection);
    guarded("the count of what waits", [&] { self.share_.set(self.held()); });
}

void Connection::close(std::string_view why) noexcept {
    if (closed_)
        return;
    closed_ = true;
    stalled_.stop();
    late_due_.stop();
    drop_.stop();
    bufferevent_disable(socket_.get(), EV_READ | EV_WRITE);
    evbuffer* output = bufferevent_get_output(socket_.get());
    evbuffer_unfreeze(output, 1);
    evbuffer_write(output, bufferevent_getfd(socket_.get()));
    shutdown(bufferevent_getfd(socket_.get()), SHUT_RDWR);
    share_.set(0);
    guarded("the end of a connection", [&] { handler_.on_closed(*this, why); });
}

bool Connection::has_gone() const {
    pollfd end = {.fd = bufferevent_getfd(socket_.get()), .events = POLLRDHUP, .revents = 0};
    if (closed_ || poll(&end, 1, 0) < 1)
        return false;
    std::byte next{};
    return role_ == Role::kNone || recv(end.fd, &next, sizeof next, MSG_PEEK | MSG_DONTWAIT) == 0;
}

void Connection::read() {
    std::array<std::byte, 16384> piece;
    try {
        int size = 0;
        while (!closed_ &&
               (size = evbuffer_remove(bufferevent_get_input(socket_.get()), piece.data(), piece.size())) > 0)
            serve(std::span(piece).first(static_cast<size_t>(size)));
    } catch (const ProtocolError& error) {
        close(error.what());
    } catch (const std::exception& error) {
        report_failure("the work on a request", words_of(error));
        close("its request cannot be worked on");
    }
    watch_for_stall();
}

void Connection::serve(std::span<const std::byte> bytes) {
    reader_.feed(bytes);
    while (!closed_ && full_ == nullptr) {
        const auto request = reader_.next();
        if (!request)
            break;
        handler_.on_request(*this, *request);
    }
    if (!closed_ && !share_.grow_to(held()))
        close("too many requests of its user are unfinished, this one after " +
              std::to_string(reader_.pending()) + " bytes");
}

void Connection::watch_for_stall() {
    if (closed_)
        return;
    // Called whenever something has arrived, so that of those who are known only silence counts.
    if (role_ == Role::kNone) {
        if (!stalled_.running())
            stalled_.start(limits_.time_to_register);
    } else if (reader_.pending() > 0)
        stalled_.start(limits_.request_time);
    else
        stalled_.stop();
}

void Connection::readable(bufferevent*, void* connection) {
    guarded("the work on a request", [connection] { static_cast<Connection*>(connection)->read(); });
}

void Connection::changed(bufferevent*, short what, void* connection) {
    auto& self = *static_cast<Connection*>(connection);
    // Nothing comes from it any more: this is the last time to let go of it.
    if (!guarded("the end of a connection", [&] { self.end(what); }))
        self.close("it has closed");
}

void Connection::end(short what) {
    if (what & BEV_EVENT_ERROR)
        close(evutil_socket_error_to_string(EVUTIL_SOCKET_ERROR()));
    else if (reader_.pending() > 0)
        close("it has closed in the middle of a request, after " + std::to_string(reader_.pending()) +
              " bytes");
    else
        close("it has closed");
}

}  // namespace quorvel::cm
