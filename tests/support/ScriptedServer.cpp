#include "support/ScriptedServer.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "support/ServerSocket.h"

namespace quorvel::test {

struct ScriptedServer::Connection {
    Connection(int descriptor, int number) : fd(descriptor), id(number) {}
    ~Connection() { close(fd); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    const int fd;
    const int id;
    std::atomic<bool> is_async{false};
    void forget_what_was_begun() {
        is_async = false;
        early.clear();
    }

    Bytes received;
    Bytes early;  // to be pushed, when the client's async socket is known
};

ScriptedServer::ScriptedServer() {
    start();
}

ScriptedServer::~ScriptedServer() {
    stop();
}

void ScriptedServer::start() {
    if (thread_.joinable())
        return;
    listener_ = listen_at(wire::kServerPath);
    wake_ = checked(eventfd(0, EFD_CLOEXEC), "eventfd");
    std::fill(std::begin(calls_), std::end(calls_), false);
    stopping_ = false;
    thread_ = std::thread([this] { serve(); });
}

void ScriptedServer::stop() {
    if (!thread_.joinable())
        return;
    checked(eventfd_write(wake_, 1), "eventfd");
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        for (const auto& gate : gates_)
            gate->open();
    }
    thread_.join();
    unlink(wire::kServerPath);
    close(listener_);
    close(wake_);
    drop_all();
}

void ScriptedServer::on(uint32_t command, Script script) {
    const std::lock_guard lock(mutex_);
    scripts_[command] = std::move(script);
}

void ScriptedServer::on(uint32_t command, Answer answer) {
    on(command, [answer = std::move(answer)](const Request&) { return answer; });
}

void ScriptedServer::once(uint32_t command, Script script) {
    const std::lock_guard lock(mutex_);
    scripts_once_[command].push_back(std::move(script));
}

void ScriptedServer::once(uint32_t command, Answer answer) {
    once(command, [answer = std::move(answer)](const Request&) { return answer; });
}

void ScriptedServer::forget_scripts() {
    const std::lock_guard lock(mutex_);
    scripts_.clear();
    scripts_once_.clear();
}

bool ScriptedServer::take_back(uint32_t command) {
    const std::lock_guard lock(mutex_);
    return scripts_once_.erase(command) != 0;
}

void ScriptedServer::drop_next_connections(int count) {
    const std::lock_guard lock(mutex_);
    connections_to_drop_ = count;
}

std::vector<Request> ScriptedServer::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

std::vector<Request> ScriptedServer::requests(uint32_t command) const {
    std::vector<Request> all = requests();
    std::erase_if(all, [&](const Request& request) { return request.command() != command; });
    return all;
}

std::optional<Request> ScriptedServer::last(uint32_t command) const {
    std::vector<Request> all = requests(command);
    return all.empty() ? std::nullopt : std::optional(std::move(all.back()));
}

size_t ScriptedServer::count(uint32_t command) const {
    return requests(command).size();
}

bool ScriptedServer::wait_for(uint32_t command, size_t times, std::chrono::milliseconds patience) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] {
        const auto is_it = [&](const Request& request) { return request.command() == command; };
        return static_cast<size_t>(std::count_if(requests_.begin(), requests_.end(), is_it)) >= times;
    });
}

int ScriptedServer::accepted_connections() const {
    const std::lock_guard lock(mutex_);
    return accepted_;
}

uint32_t ScriptedServer::client_id() const {
    const std::lock_guard lock(mutex_);
    return client_id_;
}

bool ScriptedServer::push(const wire::Record& record) {
    return push(bytes_of(record));
}

bool ScriptedServer::push(const Bytes& bytes) {
    return wait_for_async_socket() && try_push(bytes);
}

bool ScriptedServer::try_push(const Bytes& bytes) {
    const std::lock_guard lock(mutex_);
    const ConnectionPtr connection = async_connection();
    return connection != nullptr && write_all(connection->fd, bytes);
}

bool ScriptedServer::wait_for_async_socket(std::chrono::milliseconds patience) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [this] { return async_connection() != nullptr; });
}

void ScriptedServer::close_async() {
    wait_for_async_socket();
    const std::lock_guard lock(mutex_);
    if (const ConnectionPtr connection = async_connection())
        drop(connection);
}

void ScriptedServer::close_sync() {
    // Until its registration has been read, an async socket looks like any other.
    wait_for_async_socket();
    const std::lock_guard lock(mutex_);
    for (const ConnectionPtr& connection : std::vector(connections_))
        if (!connection->is_async)
            drop(connection);
}

// A client that registers anew may not have closed its older async socket yet: nothing is to go there.
void ScriptedServer::leave_async_connections_behind() {
    const std::lock_guard lock(mutex_);
    for (const ConnectionPtr& connection : connections_)
        connection->forget_what_was_begun();
    next_async_ends_ = false;
}

// The latest, should a client have several.
ScriptedServer::ConnectionPtr ScriptedServer::async_connection() const {
    const auto found =
        std::find_if(connections_.rbegin(), connections_.rend(),
                     [](const ConnectionPtr& connection) { return connection->is_async.load(); });
    return found != connections_.rend() ? *found : nullptr;
}

// The descriptor lives until the serving thread lets go of it; the client sees the end at once.
void ScriptedServer::drop(const ConnectionPtr& connection) {
    shutdown(connection->fd, SHUT_RDWR);
    std::erase(connections_, connection);
}

void ScriptedServer::drop_all() {
    const std::lock_guard lock(mutex_);
    for (const ConnectionPtr& connection : std::vector(connections_))
        drop(connection);
}

void ScriptedServer::serve() {
    for (;;) {
        std::vector<ConnectionPtr> served;
        std::vector<pollfd> waiting = {{wake_, POLLIN, 0}, {listener_, POLLIN, 0}};
        {
            const std::lock_guard lock(mutex_);
            served = connections_;
        }
        for (const ConnectionPtr& connection : served)
            waiting.push_back({connection->fd, POLLIN, 0});
        poll(waiting.data(), waiting.size(), -1);
        if (waiting[0].revents != 0)
            return;
        if (waiting[1].revents != 0)
            accept_one();
        for (size_t i = 0; i < served.size(); ++i) {
            if (waiting[i + 2].revents == 0 || read_from(served[i]))
                continue;
            const std::lock_guard lock(mutex_);
            drop(served[i]);
        }
    }
}

void ScriptedServer::accept_one() {
    const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0)
        return;
    const std::lock_guard lock(mutex_);
    const auto connection = std::make_shared<Connection>(fd, ++accepted_);
    changed_.notify_all();
    if (connections_to_drop_ > 0)
        --connections_to_drop_;
    else
        connections_.push_back(connection);
}

// False when the client has closed its end.
bool ScriptedServer::read_from(const ConnectionPtr& connection) {
    std::array<std::byte, 65536> part;
    const ssize_t got = recv(connection->fd, part.data(), part.size(), 0);
    if (got <= 0)
        return false;
    connection->received.insert(connection->received.end(), part.begin(), part.begin() + got);
    Request request{};
    while (take_request(connection, request))
        perform(connection, answer_to(request));
    return true;
}

bool ScriptedServer::take_request(const ConnectionPtr& connection, Request& request) {
    std::optional<Request> taken = test::take_request(connection->received);
    if (!taken)
        return false;
    request = std::move(*taken);
    if (request.command() == wire::NETCM_CLIENT_REGISTER_REQ)
        leave_async_connections_behind();
    if (request.command() == wire::NETCM_CLIENT_ASYNC_REGISTER_REQ) {
        connection->is_async = true;
        // It may be read behind a request that it is to bring the outcome of.
        const std::lock_guard lock(mutex_);
        for (const ConnectionPtr& other : connections_)
            write_all(connection->fd, std::exchange(other->early, {}));
        if (std::exchange(next_async_ends_, false))
            drop(connection);
    }
    request.connection = connection->id;
    request.is_async = connection->is_async;
    return true;
}

Answer ScriptedServer::answer_to(const Request& request) {
    Script script;
    {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
        changed_.notify_all();
        if (const auto once = scripts_once_.find(request.command()); once != scripts_once_.end()) {
            script = std::move(once->second.front());
            once->second.pop_front();
            if (once->second.empty())
                scripts_once_.erase(once);
        } else if (const auto found = scripts_.find(request.command()); found != scripts_.end()) {
            script = found->second;
        }
        if (!script)
            return good_answer(request);
    }
    return script(request);
}

// False when there is no waiting any more, because the server is being stopped.
bool ScriptedServer::remember(const std::shared_ptr<Gate>& gate) {
    const std::lock_guard lock(mutex_);
    gates_.push_back(gate);
    return !stopping_;
}

void ScriptedServer::perform(const ConnectionPtr& connection, const Answer& answer) {
    for (const Step& step : answer.steps()) {
        if (const auto* send = std::get_if<Send>(&step)) {
            write_all(connection->fd, send->bytes);
        } else if (const auto* pushed = std::get_if<Push>(&step)) {
            if (!try_push(pushed->bytes) && !wait_for_async_socket(std::chrono::milliseconds(0)))
                connection->early.insert(connection->early.end(), pushed->bytes.begin(), pushed->bytes.end());
        } else if (const auto* delay = std::get_if<Delay>(&step)) {
            pollfd woken = {wake_, POLLIN, 0};
            poll(&woken, 1, static_cast<int>(delay->time.count()));
        } else if (const auto* wait = std::get_if<WaitAt>(&step)) {
            if (remember(wait->gate))
                wait->gate->pass();
        } else if (std::holds_alternative<CloseConnection>(step)) {
            const std::lock_guard lock(mutex_);
            drop(connection);
        } else {
            const std::lock_guard lock(mutex_);
            if (const ConnectionPtr async = async_connection())
                drop(async);
            else
                next_async_ends_ = true;
        }
    }
}

}  // namespace quorvel::test
