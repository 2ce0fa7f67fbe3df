// The four calls: who uses them, and what they go through.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "bearer/bearer.h"
#include "bearer/statistics.h"
#include "call_users.h"
#include "clients.h"
#include "profile.h"

namespace quorvel::cm {

inline constexpr uint32_t kCallCount = 4;

struct Call {
    enum class State { kFree, kStarting, kUp, kSuspended };

    State state = State::kFree;
    CallUsers users;
    Addresses addresses;
    std::string way;  // in words, while it comes up

    bool connected() const { return state == State::kUp || state == State::kSuspended; }
};
const char* to_text(Call::State state);

// Two profiles share a connection when they lead to the same access point by the same way.
bool same_connection(const Profile& a, const Profile& b);

class Calls : public BearerEvents {
  public:
    Calls(const Config& config, Clients& clients, Statistics& statistics)
        : config_(config), clients_(clients), statistics_(statistics) {}
    void use(Bearer& bearer) { bearer_ = &bearer; }

    const std::array<Call, kCallCount>& all() const { return calls_; }
    // The ids of those that are not free, in order.
    std::vector<uint32_t> in_use() const;
    // The call that a profile is on.
    std::optional<uint32_t> find(int32_t profile) const;

    // Of a profile that is on a call; null for any other.
    uint32_t* packet_data_state(int32_t profile);

    // The id of the call that the client now waits for or shares; nothing when all calls are taken. The
    // response is pushed by respond_if_up() or, later, by the bearer. Leaves the calls as they were when it
    // throws.
    std::optional<uint32_t> start(uint32_t client, const Profile& profile);
    void respond_if_up(uint32_t call, uint32_t client, int32_t profile);
    // The client leaves the call with all its profiles. False when it does not use the call.
    bool stop(uint32_t client, uint32_t call);
    // The client has gone.
    void leave(uint32_t client);
    // Ends the profile's call, whoever else uses it. False when there is none; the response is pushed either
    // way.
    bool kill(uint32_t client, int32_t profile);

    // What the network, or an operator in its place, does to a call that is connected. The status is passed
    // on.
    void suspend(uint32_t call, uint32_t status = NETCM_SUCCESS);
    void resume(uint32_t call, uint32_t status = NETCM_SUCCESS);
    void change(uint32_t call, const Addresses& addresses);
    void end(uint32_t call, uint32_t status, Reason reason);
    // Tells every user that its kill is done, and ends the call when the status is 0.
    void answer_kill(uint32_t call, uint32_t status, Reason reason);

    void on_up(uint32_t call, const Addresses& addresses) override;
    void on_refused(uint32_t call, Reason reason) override;
    void on_suspended(uint32_t call) override;
    void on_resumed(uint32_t call) override;
    void on_changed(uint32_t call, const Addresses& addresses) override;
    void on_ended(uint32_t call, Reason reason) override;
    void on_failed(uint32_t call) override { give_up(call); }

  private:
    void push_up(uint32_t call, uint32_t client, int32_t profile);
    // The same event to every client of the call, once.
    void tell_clients(uint32_t call, wire::Event code, uint32_t status, Reason reason = Reason::kNone);
    void release(uint32_t call);
    // Ends the call, and the link of everybody who uses it.
    void give_up(uint32_t call);
    template <class Action>
    void or_give_up(uint32_t call, Action&& action);
    void begin(uint32_t call, uint32_t client, const Profile& profile);

    const Config& config_;
    Clients& clients_;
    Statistics& statistics_;
    Bearer* bearer_ = nullptr;
    std::array<Call, kCallCount> calls_;
};

}  // namespace quorvel::cm
