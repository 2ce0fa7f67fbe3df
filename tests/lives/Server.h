// A CM server in this process, on the real socket path, on a thread of its own. It answers the requests of a
// link in their order, and pushes in every order that a real one may.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "Answers.h"
#include "Calls.h"
#include "Model.h"
#include "Outbox.h"
#include "Random.h"

namespace quorvel::lives {

class Server {
  public:
    Server(Model& model, uint64_t seed);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // From now on it is there, is quick, and tells everything that it has to tell.
    void come_to_rest();
    // Whether it has told everything, as far as anybody is there to be told.
    bool is_done() const { return is_done_; }
    // Something to every registered thread, soon.
    void broadcast();

  private:
    struct Socket {
        int fd;
        int link = 0;  // 0: not registered
        bool is_async = false;
        test::Bytes received{};
    };
    using SocketPtr = std::shared_ptr<Socket>;
    enum class Ends { Lives, Dies };

    void serve();
    void wait_for_something();
    void wait_a_little(int least_microseconds, int most_microseconds);
    void accept_one();
    Ends read_from(const SocketPtr& socket);
    Ends take(const SocketPtr& socket, const test::Request& request);
    void register_client(const SocketPtr& socket);
    Ends answer(const SocketPtr& socket, const test::Bytes& bytes);
    size_t unread();
    bool is_behind();
    Ends push_some();
    Ends push(const Parcel& parcel);
    void write(int fd, const test::Bytes& bytes, size_t from);
    void close_link(int link);
    Socket* async_socket();

    bool is_at_rest() const { return to_rest_.load(); }
    bool is_disorderly() const { return model_.has(kDisorder) && !is_at_rest(); }
    bool is_slow() { return model_.has(kSlowness) && !is_at_rest() && random_.one_in(6); }
    bool is_its_time();
    Ends die();
    void come_back();

    Model& model_;
    Random random_;
    Outbox outbox_;
    Calls calls_;
    Answers answers_;
    int deaths_left_;
    bool away_ = false;
    std::chrono::steady_clock::time_point back_at_{};
    std::vector<SocketPtr> sockets_;
    int listener_;
    int wake_;
    std::atomic<bool> stops_{false};
    std::atomic<bool> to_rest_{false};
    std::atomic<bool> is_done_{false};
    std::atomic<int> broadcasts_{0};
    std::thread thread_;
};

}  // namespace quorvel::lives
