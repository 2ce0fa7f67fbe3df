// One accepted socket: cuts what arrives into requests, and sends messages without ever waiting.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "events.h"
#include "holdings.h"
#include "log.h"
#include "protocol/message.h"
#include "protocol/request.h"

namespace quorvel::cm {

// Who is at the other end, as the kernel says.
struct Peer {
    pid_t pid = 0;
    uid_t uid = 0;

    bool operator==(const Peer&) const = default;
};
Peer peer_of(int fd);
log::Subject describe(const Peer& peer);

// What a client may do to the server before it is dropped.
struct ConnectionLimits {
    // How long a request may stay incomplete.
    std::chrono::milliseconds request_time{5000};
    // How long a new connection may take to say who it is.
    std::chrono::milliseconds time_to_register{5000};
    // How many bytes may wait for a client that does not read.
    size_t unread_bytes = size_t{4} * 1024 * 1024;
};

class Connection {
  public:
    enum class Role { kNone, kSync, kAsync };

    // Told what arrives. May close the connection, and must not destroy it.
    class Handler {
      public:
        virtual void on_request(Connection& connection, const Request& request) = 0;
        // A message is to be sent; the handler writes it, or something else.
        virtual void on_send(Connection& connection, const Message& message) = 0;
        // The connection has ended; `why` says it in words. Called once.
        virtual void on_closed(Connection& connection, std::string_view why) = 0;

      protected:
        ~Handler() = default;
    };

    Connection(event_base* base, AcceptedSocket socket, const ConnectionLimits& limits, Holdings& holdings,
               Handler& handler);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    const Peer& peer() const { return peer_; }
    Role role() const { return role_; }
    uint32_t client_id() const { return client_id_; }
    void assign(Role role, uint32_t client_id);

    // Never throws for the sake of one who cannot be told: that one is dropped.
    void send(const Message& message) noexcept;
    // Keeps so many more bytes for the other end, besides what it has not read; false when that is too much.
    [[nodiscard]] bool keep(size_t bytes);
    // Sends these bytes after the delay, and never before what was written earlier.
    void write(std::vector<std::byte> bytes, std::chrono::milliseconds delay = std::chrono::milliseconds(0));
    // Ends the connection after what the socket takes at once has been sent.
    void close(std::string_view why) noexcept;
    // Whether the other end has gone and nobody has noticed yet; not while it has left something to be done.
    bool has_gone() const;
    // Ends it now for both ends; the object stays until whoever is using it has returned.
    void drop_soon(const char* why);

  private:
    static void readable(bufferevent*, void* connection);
    static void changed(bufferevent*, short what, void* connection);
    static void written(bufferevent*, void* connection);
    void end(short what);
    void read();
    void serve(std::span<const std::byte> bytes);
    size_t held() const;
    void watch_for_stall();
    void put_out(const std::vector<std::byte>& bytes);
    size_t put_out_at_once(const std::vector<std::byte>& bytes);
    void put_out_late();

    struct Late {
        std::chrono::steady_clock::time_point due;
        std::vector<std::byte> bytes;
    };

    ConnectionLimits limits_;
    Handler& handler_;
    Peer peer_;
    Holdings::Share share_;
    Role role_ = Role::kNone;
    uint32_t client_id_ = 0;
    bool closed_ = false;
    RequestReader reader_;
    BufferEvent socket_;
    Timer stalled_;
    std::deque<Late> late_;
    size_t late_bytes_ = 0;
    size_t kept_ = 0;
    Timer late_due_;
    const char* full_ = nullptr;  // why nothing more is sent
    Timer drop_;
};

}  // namespace quorvel::cm
