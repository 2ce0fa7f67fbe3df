// The four calls, and who uses them.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "bearer.h"
#include "clients.h"
#include "profile.h"

namespace quorvel::cm {

inline constexpr uint32_t kCallCount = 4;

struct Call {
    enum class State { kFree, kStarting, kUp };
    // A client that has opened a profile. A client that has opened two stands here twice.
    struct User {
        uint32_t client;
        int32_t profile;

        bool operator==(const User&) const = default;
    };

    State state = State::kFree;
    std::vector<Profile> profiles;  // that share the connection
    std::vector<User> users;
    Addresses addresses;
};

// Two profiles share a connection when they lead to the same access point by the same way.
bool same_connection(const Profile& a, const Profile& b);

class Calls : public BearerEvents {
  public:
    explicit Calls(Clients& clients) : clients_(clients) {}
    void use(Bearer& bearer) { bearer_ = &bearer; }

    const std::array<Call, kCallCount>& all() const { return calls_; }
    std::optional<uint32_t> find(int32_t profile) const;

    // The id of the call that the client now waits for or shares; nothing when all calls are taken. The
    // response is pushed by respond_if_up() or, later, by the bearer.
    std::optional<uint32_t> start(uint32_t client, const Profile& profile);
    void respond_if_up(uint32_t call, Call::User user);
    // The client leaves the call with all its profiles. False when it does not use the call.
    bool stop(uint32_t client, uint32_t call);
    // The client has gone.
    void leave(uint32_t client);

    void on_up(uint32_t call, const Addresses& addresses) override;
    void on_refused(uint32_t call, Reason reason) override;

  private:
    void push_up(uint32_t call, Call::User user);
    void release_if_unused(uint32_t call);
    uint32_t begin(uint32_t call, const Profile& profile);

    Clients& clients_;
    Bearer* bearer_ = nullptr;
    std::array<Call, kCallCount> calls_;
};

}  // namespace quorvel::cm
