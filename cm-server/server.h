// The daemon: owns the sockets and the state, and brings requests to their handlers.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "bearer/bearers.h"
#include "bearer/link_watch.h"
#include "calls.h"
#include "clients.h"
#include "config/config.h"
#include "connection.h"
#include "control/control.h"
#include "descriptors.h"
#include "doorkeeper.h"
#include "events.h"
#include "faults/faults.h"
#include "keeper.h"
#include "listening_socket.h"
#include "monitor/tap.h"
#include "requests/requests.h"
#include "store/good_copy.h"
#include "store/store.h"
#include "watchdog.h"

namespace quorvel::cm {

struct ServerOptions {
    std::string socket;
    std::string store;   // file, or ":memory:"
    std::string config;  // file; empty: the built-in one
    bool log_level_given = false;
    size_t max_clients = 256;
    ConnectionLimits limits;
    RecordPlan record;
};

class Server : private Connection::Handler {
  public:
    // Throws SocketPathError when the path cannot be had.
    Server(const ServerOptions& options, Config config);
    ~Server();

    // Serves until SIGTERM or SIGINT.
    void run();

  private:
    void accept(AcceptedSocket socket);
    // Of a user who may have no more: whoever has gone counts no longer. Whether there was one, the newcomer
    // aside.
    bool let_go_of_departed(uid_t user, const Connection* newcomer = nullptr);
    void register_client(Connection& connection, const Request& request);
    void attach_client(Connection& connection, const Request& request);
    void forget(uint32_t client);
    void stop(const char* why);
    // What the file says now, as far as it can change while the server runs. Gives its faults.
    std::string reload();
    void hung_up();
    nlohmann::json reload_for_operator();
    // In words, with what to do; nothing when the database has what the file says.
    std::string other_profiles();
    void warn_of_other_profiles();
    void apply(Config config);
    void make_room_for_one();
    void links_changed();
    void managed_changed();
    void tell_status();
    std::unique_ptr<ListeningSocket> listen();
    // Everybody is disconnected, and nobody is let in for a while.
    void restart(std::chrono::milliseconds away);
    void come_back();
    nlohmann::json execute(const nlohmann::json& command);
    // Who is registered, and which calls there are.
    std::vector<nlohmann::json> present() const;
    nlohmann::json who_am_i() const;
    void start_recording();
    void note_client(const Client& client);
    void note_command(const nlohmann::json& command);
    void note_silence(const Connection& connection, const Message& message);
    void note_closed(const Connection& connection, std::string_view why);
    Services services() {
        return {clients_, calls_, store_, settings_, statistics_, networks_, interfaces_, config_.limits};
    }

    void on_request(Connection& connection, const Request& request) override;
    void on_send(Connection& connection, const Message& message) override;
    void on_closed(Connection& connection, std::string_view why) override;
    void log_closed(const Connection& connection, std::string_view why);

    ServerOptions options_;
    int64_t started_ = microseconds_now();
    Config config_;
    EventBase base_;
    std::unique_ptr<ListeningSocket> socket_;
    Tap tap_;
    Faults faults_;
    Holdings holdings_;
    Room room_;
    Doorkeeper door_;
    log::Sparing turned_away_;
    Clients clients_;
    Interfaces interfaces_;
    Statistics statistics_;
    Calls calls_;
    Timer managed_changed_;
    Bearers bearer_;
    Store store_;
    GoodCopy good_copy_;
    Networks networks_;
    Settings settings_;
    LinkWatch links_;
    wire::Record last_status_;
    Keeper<Connection> connections_;
    Timer back_;
    // The log is written as far as it is read; what waits goes out here.
    Timer log_again_;
    Control control_;
    EndSignals end_;
    SignalWatch hang_up_;
    Watchdog watchdog_;
};

}  // namespace quorvel::cm
