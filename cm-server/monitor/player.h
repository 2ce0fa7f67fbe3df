// A client of a replay, in the part of a recorded one.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "connection.h"
#include "events.h"
#include "record/lives.h"

namespace quorvel::cm {

// What all players of a replay have in common.
struct Play {
    const Lives& lives;
    double speed;  // 0: nobody waits
    // Each is a sentence: what a client does, and what it does otherwise than in the record.
    std::function<void(const std::string& words)> say;
    std::function<void(const std::string& words)> otherwise;
};

class Player {
  public:
    Player(event_base* base, const Play& play, const Life& life, uint32_t id, Connection& sync);
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    uint32_t id() const { return id_; }
    const Life& life() const { return life_; }
    Connection* sync() const { return sync_; }
    Connection* async() const { return async_; }
    void attach(Connection& async);
    void detach() { async_ = nullptr; }
    void register_now();
    void ask(const Request& request);
    // Its client has gone: what it has left out is said.
    void leave();

  private:
    using Bytes = std::vector<std::byte>;
    struct Due {
        std::chrono::steady_clock::time_point time;
        const Step* step;
    };

    size_t find(size_t from, const Bytes& asked) const;
    void take_turn(size_t request);
    void skip_to(size_t request);
    // Gives what followed a request of a life, as that life had it: what comes at its time, and what answers.
    void follow(const Life& life, size_t request, bool answers_alone);
    void follow_up();
    void plan(const Step& step, std::chrono::steady_clock::time_point from, int64_t since);
    void give_due();
    void give_all();
    void give(const Step& step);
    void ask_out_of_turn(const Request& request, const Bytes& asked);
    bool serve_from_elsewhere(const Bytes& asked);
    bool serve_earlier_call(const Request& request);
    void refuse(const Request& request);
    void push(Bytes bytes);

    const Play& play_;
    const Life& life_;
    uint32_t id_;
    Connection* sync_;
    Connection* async_ = nullptr;
    size_t next_ = 0;  // the step that comes next
    bool has_matched_ = false;
    size_t asked_ = 0;
    std::deque<Due> due_;
    Timer timer_;
    std::vector<Bytes> waiting_;
};

}  // namespace quorvel::cm
