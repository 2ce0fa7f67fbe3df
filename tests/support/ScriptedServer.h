// A CM server that does what a test tells it to, on the real socket path, on a thread of its own.
//
// Without orders it behaves well: it registers clients, gives call ids, answers every query, and pushes the
// responses to stop and kill. `on` and `once` replace what it does about a command.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "support/Answer.h"

namespace quorvel::test {

class ScriptedServer {
  public:
    using Script = std::function<Answer(const Request&)>;
    static constexpr std::chrono::seconds kPatience{20};

    // Listens when the constructor returns.
    ScriptedServer();
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    // Goes away as a dead server does: every connection is closed, the path is gone. And comes back.
    void stop();
    void start();

    // From now on, or for the next request of the command only (several are used one after another).
    void on(uint32_t command, Script script);
    void on(uint32_t command, Answer answer);
    void once(uint32_t command, Script script);
    void once(uint32_t command, Answer answer);
    // Whether there was one left for the next request of the command; it is not used any more.
    bool take_back(uint32_t command);
    // Back to good behaviour.
    void forget_scripts();
    // Accepts the next connections and closes them at once.
    void drop_next_connections(int count);

    // What has arrived, in order; of one command; of the last one of it.
    std::vector<Request> requests() const;
    std::vector<Request> requests(uint32_t command) const;
    std::optional<Request> last(uint32_t command) const;
    size_t count(uint32_t command) const;
    bool wait_for(uint32_t command, size_t times = 1, std::chrono::milliseconds patience = kPatience) const;
    int accepted_connections() const;

    // On the async socket. False when there is none or it cannot be written.
    bool push(const wire::Record& record);
    bool push(const Bytes& bytes);
    template <class T>
    bool push(const wire::Record& record, const T& block) {
        Bytes whole = bytes_of(record);
        const Bytes more = bytes_of(block);
        whole.insert(whole.end(), more.begin(), more.end());
        return push(whole);
    }
    // Without waiting for an async socket that is not there (yet, or any more).
    bool try_push(const Bytes& bytes);
    bool wait_for_async_socket(std::chrono::milliseconds patience = kPatience) const;

    // The server's end of the sockets.
    void close_async();
    void close_sync();

    // The client id that the last registration got.
    uint32_t client_id() const;

  private:
    struct Connection;
    using ConnectionPtr = std::shared_ptr<Connection>;

    void serve();
    void accept_one();
    bool read_from(const ConnectionPtr& connection);
    bool take_request(const ConnectionPtr& connection, Request& request);
    Answer answer_to(const Request& request);
    Answer good_answer(const Request& request);
    void perform(const ConnectionPtr& connection, const Answer& answer);
    bool remember(const std::shared_ptr<Gate>& gate);
    void drop(const ConnectionPtr& connection);
    void drop_all();
    std::optional<uint32_t> free_call_id();
    ConnectionPtr async_connection() const;
    void leave_async_connections_behind();

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::map<uint32_t, Script> scripts_;
    std::map<uint32_t, std::deque<Script>> scripts_once_;
    std::vector<ConnectionPtr> connections_;
    std::vector<Request> requests_;
    std::vector<std::shared_ptr<Gate>> gates_;
    bool stopping_ = false;
    bool calls_[4] = {};
    uint32_t client_id_ = 100;
    int accepted_ = 0;
    int connections_to_drop_ = 0;
    // An answer has ended the async connection before its registration was read.
    bool next_async_ends_ = false;

    int listener_ = -1;
    int wake_ = -1;  // an eventfd: readable when the thread shall end
    std::thread thread_;
};

// Pushed records, as they are often wanted.
wire::Record start_response(int32_t call, int32_t profile, uint32_t status = 0, uint32_t reason = 0);
wire::Record stop_response(int32_t call, int32_t profile, uint32_t status = 0, uint32_t reason = 0);
wire::Record kill_response(int32_t profile, uint32_t status = 0, uint32_t reason = 0);
// An indication of a call, of the code given.
wire::Record indication(uint32_t code, int32_t call, int32_t profile = 0, uint32_t status = 0,
                        uint32_t reason = 0);

// Connection details: two DNS servers, both optional addresses, interface "pdp0".
wire::ConnectionBlock connection_block();
NetCMAddr ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d);

}  // namespace quorvel::test
