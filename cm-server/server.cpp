#include "server.h"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <csignal>
#include <sstream>

#include "control/commands.h"
#include "control/place.h"
#include "control/trouble.h"
#include "control/vocabulary.h"
#include "guard.h"
#include "log.h"
#include "requests/requests.h"

namespace quorvel::cm {
namespace {

constexpr std::chrono::milliseconds kLogAgain{100};

}  // namespace

Server::Server(const ServerOptions& options, Config config)
    : options_(options),
      config_(std::move(config)),
      base_(make_event_base()),
      socket_(listen()),
      tap_(base_.get()),
      holdings_(config_.limits.memory),
      room_(make_room(options.max_clients)),
      door_(config_.limits, room_.connections),
      clients_(room_.clients),
      statistics_(interfaces_),
      calls_(config_, clients_, statistics_),
      managed_changed_(base_.get(), [this] { managed_changed(); }),
      bearer_(
          base_.get(), config_.set_up_limit, interfaces_, [this](int32_t id) { return store_.read(id); },
          options.store == kInMemory ? "" : options.store + ".activated",
          [this] { managed_changed_.start(std::chrono::milliseconds(0)); }, calls_),
      store_(options.store, config_.profiles),
      good_copy_(base_.get(), store_, config_.good_copy_after),
      networks_(config_, store_, interfaces_,
                [this](const Network& network) { return bearer_.status(network); }),
      links_(base_.get(), interfaces_, [this] { links_changed(); }),
      last_status_(networks_.indication().record),
      connections_(base_.get()),
      back_(base_.get(), [this] { come_back(); }),
      log_again_(base_.get(), [] { log::try_again(); }),
      control_(base_.get(), control_path_to_serve(options.socket), tap_,
               [this](const nlohmann::json& command) { return execute(command); }),
      end_(base_.get(), [this](const char* signal) { stop(signal); }),
      hang_up_(base_.get(), SIGHUP, [this] { hung_up(); }),
      watchdog_(base_.get()) {
    // A client has two connections of three each; there are a few more, and those of who has not registered.
    constexpr size_t kTimersOfClient = 6;
    constexpr size_t kOtherTimers = 256;
    reserve_timers(base_.get(), kTimersOfClient * room_.clients + kOtherTimers);
    ignore_other_signals();
    log::when_waiting([this] { log_again_.start(kLogAgain); });
    calls_.use(bearer_);
    bearer_.use(config_);
    tap_.use([this] { return present(); });
    start_recording();
    keep_memory_for_trouble();
}

Server::~Server() {
    log::when_waiting({});
    log::finish();
}

std::unique_ptr<ListeningSocket> Server::listen() {
    return std::make_unique<ListeningSocket>(
        base_.get(), options_.socket, kEveryUser,
        [this](AcceptedSocket accepted) { accept(std::move(accepted)); });
}

nlohmann::json Server::execute(const nlohmann::json& given) {
    const nlohmann::json command = checked_command(given);
    note_command(command);
    if (command.at("command") == "reload")
        return reload_for_operator();
    const Trouble trouble{clients_, faults_, [this](std::chrono::milliseconds away) { restart(away); }};
    if (const auto done = execute_trouble(trouble, command))
        return *done;
    return execute_command(services(), command);
}

void Server::restart(std::chrono::milliseconds away) {
    log::info("goes away for ", away.count(), " ms");
    socket_.reset();
    for (Connection* connection : connections_.all())
        connection->close("the server goes away");
    back_.start(away);
}

void Server::come_back() {
    try {
        socket_ = listen();
        log::info("is back");
    } catch (const std::exception& error) {
        log::error("cannot come back: ", error.what());
        stop("its path being taken");
    }
}

void Server::run() {
    log::info("listening on ", socket_->path());
    warn_of_other_profiles();
    sd_notify(0, "READY=1");
    event_base_dispatch(base_.get());
}

void Server::stop(const char* why) {
    log::info("ends on ", why);
    tap_.note([why]() -> nlohmann::json { return {{"note", "end"}, {"why", why}}; });
    tap_.tell();
    sd_notify(0, "STOPPING=1");
    bearer_.finish();
    event_base_loopbreak(base_.get());
}

std::string Server::reload() {
    if (options_.config.empty())
        return "there is no configuration file to read again";
    sd_notify(0, "RELOADING=1");
    std::string faults;
    try {
        apply(read_config(options_.config));
    } catch (const ConfigError& error) {
        faults = error.what();
        std::istringstream lines(faults);
        for (std::string fault; std::getline(lines, fault);)
            log::error(fault);
        log::error("the configuration is left as it was");
    }
    sd_notify(0, "READY=1");
    return faults;
}

void Server::hung_up() {
    if (options_.config.empty())
        return log::info("SIGHUP: there is no configuration file to read again");
    reload();
}

nlohmann::json Server::reload_for_operator() {
    log::info("the operator asks for the configuration to be read again");
    if (const std::string faults = reload(); !faults.empty())
        throw ControlError(faults + (options_.config.empty() ? "" : "\nthe configuration is left as it was"));
    const std::string other = other_profiles();
    return {{"text", options_.config + ": read again" + (other.empty() ? "" : "\n" + other)}};
}

// Connections that are open keep what they were opened with.
void Server::apply(Config config) {
    config_ = std::move(config);
    if (config_.log_level && !options_.log_level_given)
        log::set_level(*config_.log_level);
    holdings_.use(config_.limits.memory);
    door_.use(config_.limits);
    bearer_.use(config_);
    good_copy_.use(config_.good_copy_after);
    store_.use(config_.profiles);
    networks_.count();
    log::info(options_.config,
              ": read again; networks, name servers, limits and the log level are the file's");
    warn_of_other_profiles();
    links_changed();
}

// What the file says of profiles is the factory's; the database has what applications have made of it since.
std::string Server::other_profiles() {
    if (options_.config.empty() || !config_.has_profiles)
        return "";
    const auto names = store_.differing();
    if (names.empty())
        return "";
    std::string list;
    constexpr size_t kMost = 5;
    for (size_t i = 0; i < std::min(names.size(), kMost); ++i)
        list += (i == 0 ? "" : ", ") + names[i];
    if (names.size() > kMost)
        list += " and " + std::to_string(names.size() - kMost) + " more";
    return options_.config + ": the profiles differ from those in the database, which stay: " + list +
           ". \"netcm profile restore\" takes the file's over; all others are lost then";
}

void Server::warn_of_other_profiles() {
    if (const std::string text = other_profiles(); !text.empty())
        log::warning(text);
}

void Server::managed_changed() {
    networks_.forget_managed();
    tell_status();
}

void Server::links_changed() {
    bearer_.look_again();
    tell_status();
}

void Server::tell_status() {
    const Message status = networks_.indication();
    if (status.record.Word2 == last_status_.Word2 && status.record.CallId == last_status_.CallId)
        return;
    last_status_ = status.record;
    log::info("network status: packet data ", to_text(static_cast<NetworkStatus>(status.record.Word2)),
              ", Wi-Fi ", to_text(static_cast<NetworkStatus>(status.record.CallId)));
    for (const auto& [id, client] : clients_.all())
        clients_.push(id, status);
}

void Server::accept(AcceptedSocket socket) {
    keep_memory_for_trouble();
    const Peer peer = peer_of(socket.get());
    auto why = door_.refuses_connection(peer.uid);
    if (why && let_go_of_departed(peer.uid))
        why = door_.refuses_connection(peer.uid);
    if (why)
        return turned_away_.warning(describe(peer), " is not let in: ", *why);
    make_room_for_one();
    Connection::Handler& handler = *this;
    ConnectionLimits limits = options_.limits;
    limits.time_to_register = door_.time_to_register(peer.uid, limits.request_time);
    log::debug("connection from ", describe(peer));
    Connection& connection = connections_.add(
        std::make_unique<Connection>(base_.get(), std::move(socket), limits, holdings_, handler));
    try {
        door_.enter(connection);
    } catch (...) {
        connection.close("it cannot be taken in");
        throw;
    }
}

bool Server::let_go_of_departed(uid_t user, const Connection* newcomer) {
    bool any = false;
    for (Connection* connection : connections_.all()) {
        if (connection == newcomer || connection->peer().uid != user || !connection->has_gone())
            continue;
        connection->close("it has closed");
        any = true;
    }
    return any;
}

// Whoever says nothing goes first. There is room for more than can be registered, so there is always one.
void Server::make_room_for_one() {
    if (!door_.full())
        return;
    if (Connection* unknown = door_.longest_unknown()) {
        turned_away_.warning("all connections are taken; those that do not say who they are go first");
        unknown->close("others need its place");
    }
}

void Server::on_send(Connection& connection, const Message& message) {
    const Delivery delivery = faults_.apply(connection.client_id(), message);
    if (delivery.silent)
        return note_silence(connection, message);
    tap_.show(connection.client_id(), connection.role() == Connection::Role::kAsync, delivery.message,
              message, delivery.delay);
    connection.write(delivery.bytes(), delivery.delay);
}

void Server::on_request(Connection& connection, const Request& request) {
    const uint32_t command = request.header.Command;
    if (connection.role() != Connection::Role::kNone)
        tap_.show(connection.client_id(), request);
    if (connection.role() == Connection::Role::kSync && command > wire::NETCM_CLIENT_ASYNC_REGISTER_REQ)
        return handle_request(services(), *clients_.find(connection.client_id()), request);
    if (connection.role() != Connection::Role::kNone)
        return connection.close(std::string("it sends ") + wire::find_command(command)->name +
                                " where that is not allowed");
    if (command == wire::NETCM_CLIENT_REGISTER_REQ)
        return register_client(connection, request);
    if (command == wire::NETCM_CLIENT_ASYNC_REGISTER_REQ)
        return attach_client(connection, request);
    tap_.show(0, request);
    connection.close(std::string("it sends ") + wire::find_command(command)->name +
                     " before it has registered");
}

void Server::register_client(Connection& connection, const Request& request) {
    const auto app_id = static_cast<int32_t>(request.header.Arg5);
    const uid_t user = connection.peer().uid;
    auto refused = door_.refuses_registration(user);
    if (refused && let_go_of_departed(user, &connection))
        refused = door_.refuses_registration(user);
    Client* client = refused ? nullptr : clients_.add(connection, app_id);
    Message answer =
        make_message(wire::NETCM_CLIENT_REGISTER_RSP, client ? NETCM_SUCCESS : NETCM_ERR_MAX_LIMIT);
    if (client == nullptr) {
        tap_.show(0, request);
        connection.send(answer);
        return connection.close(
            refused.value_or("there are " + std::to_string(clients_.all().size()) + " clients already"));
    }
    door_.recognise(connection, true);
    answer.record.Word1 = client->id;
    note_client(*client);
    tap_.show(client->id, request);
    connection.send(answer);
    log::info(describe(*client), " has registered, user ", log::field("user", client->peer.uid),
              ", application ", log::field("application", app_id));
}

void Server::attach_client(Connection& connection, const Request& request) {
    Client* client = clients_.attach(connection, request.header.ClientId);
    if (client == nullptr) {
        tap_.show(0, request);
        return connection.close("it offers an async socket for client " +
                                std::to_string(request.header.ClientId) + ", which it is not");
    }
    door_.recognise(connection, false);
    tap_.show(client->id, request);
    log::info(describe(*client), " receives events");
    Clients::push_waiting(*client);
}

// What it had is let go of also when there is no memory to say so.
void Server::on_closed(Connection& connection, std::string_view why) {
    guarded("the note of a connection's end", [&] { note_closed(connection, why); });
    guarded("the log of a connection's end", [&] { log_closed(connection, why); });
    const uint32_t id = connection.client_id();
    door_.leave(connection);
    if (connection.role() != Connection::Role::kNone && clients_.find(id) != nullptr)
        connection.role() == Connection::Role::kSync ? forget(id) : clients_.detach(id);
    connections_.remove(connection);
}

void Server::log_closed(const Connection& connection, std::string_view why) {
    const Client* client = clients_.find(connection.client_id());
    const bool sync = connection.role() == Connection::Role::kSync;
    if (connection.role() == Connection::Role::kNone)
        log::info(describe(connection.peer()), " is not served any more: ", why);
    else if (client != nullptr)
        log::info(describe(*client), sync ? " has gone: " : " receives no events any more: ", why);
}

void Server::forget(uint32_t id) {
    calls_.leave(id);
    faults_.forget(id);
    Connection* async = clients_.find(id)->async;
    clients_.remove(id);
    if (async != nullptr)
        async->close("its client has gone");
}

}  // namespace quorvel::cm
