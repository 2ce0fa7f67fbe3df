#include "monitor/replayer.h"

#include <algorithm>
#include <cstdio>

#include "log.h"
#include "monitor/decode.h"
#include "protocol/cursor.h"

namespace quorvel::cm {
namespace {

bool is_async_registration(const SessionEntry& entry) {
    wire::RequestHeader header{};
    return entry.direction == SessionEntry::Direction::kRequest && Cursor(entry.bytes).read(header) &&
           header.Command == wire::NETCM_CLIENT_ASYNC_REGISTER_REQ;
}

// The client id, and in a registration the descriptor that stands in its place, differ from run to run.
std::vector<std::byte> comparable(std::vector<std::byte> bytes) {
    constexpr size_t kClientId = offsetof(wire::RequestHeader, ClientId);
    if (bytes.size() >= sizeof(wire::RequestHeader))
        std::fill_n(bytes.begin() + kClientId, sizeof(uint32_t), std::byte{0});
    return bytes;
}

std::vector<std::byte> bytes_of(const Request& request) {
    std::vector<std::byte> bytes;
    append(bytes, request.header);
    bytes.insert(bytes.end(), request.payload.begin(), request.payload.end());
    return bytes;
}

}  // namespace

Replayer::Replayer(const std::string& socket, std::vector<SessionEntry> session)
    : base_(make_event_base()),
      session_(std::move(session)),
      connections_(base_.get()),
      socket_(base_.get(), socket, kEveryUser, [this](evutil_socket_t fd) { accept(fd); }),
      end_(base_.get(), [this](const char*) { event_base_loopbreak(base_.get()); }) {
    // Async sockets register whenever they like; the session's place for it does not matter.
    std::erase_if(session_, is_async_registration);
}

void Replayer::run() {
    log::info("listening on ", socket_.path(), " with a session of ", session_.size(), " messages");
    event_base_dispatch(base_.get());
}

void Replayer::accept(evutil_socket_t fd) {
    Connection::Handler& handler = *this;
    connections_.add(std::make_unique<Connection>(base_.get(), fd, ConnectionLimits{}, holdings_, handler));
}

void Replayer::on_request(Connection& connection, const Request& request) {
    if (request.header.Command == wire::NETCM_CLIENT_ASYNC_REGISTER_REQ) {
        connection.assign(Connection::Role::kAsync, 1);
        async_ = &connection;
        for (auto& bytes : std::exchange(waiting_, {}))
            connection.write(std::move(bytes));
        return;
    }
    if (request.header.Command == wire::NETCM_CLIENT_REGISTER_REQ) {
        connection.assign(Connection::Role::kSync, 1);
        sync_ = &connection;
        next_ = 0;
    }
    compare(request);
    give();
}

void Replayer::compare(const Request& request) {
    const auto asked = decode(request);
    const std::string words = asked.at("name").get<std::string>() + " " + to_line(asked.at("fields"));
    if (next_ >= session_.size()) {
        std::printf("the session is over, the client asks %s\n", words.c_str());
    } else {
        const SessionEntry& expected = session_[next_++];
        const bool same = comparable(expected.bytes) == comparable(bytes_of(request));
        std::printf(same ? "%zu: %s\n" : "%zu: the client asks %s\n", next_, words.c_str());
        if (!same)
            std::printf("%zu: recorded was %s %s\n", next_, expected.name.c_str(), expected.fields.c_str());
    }
    std::fflush(stdout);
}

void Replayer::give() {
    for (; next_ < session_.size() && session_[next_].direction != SessionEntry::Direction::kRequest;
         ++next_) {
        if (session_[next_].direction == SessionEntry::Direction::kEvent)
            give_to_async(session_[next_]);
        else if (sync_ != nullptr)
            sync_->write(session_[next_].bytes);
    }
}

void Replayer::give_to_async(const SessionEntry& entry) {
    if (async_ != nullptr)
        async_->write(entry.bytes);
    else
        waiting_.push_back(entry.bytes);
}

void Replayer::on_send(Connection&, const Message&) {}

void Replayer::on_closed(Connection& connection, const std::string&) {
    if (sync_ == &connection)
        sync_ = nullptr;
    if (async_ == &connection)
        async_ = nullptr;
    connections_.remove(connection);
}

}  // namespace quorvel::cm
