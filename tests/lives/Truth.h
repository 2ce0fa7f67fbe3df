// What is so at the server: its links with the client, the connections, and what it has pushed about them.
// The server's thread alone changes it.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "Payload.h"

namespace quorvel::lives {

inline constexpr int32_t kProfiles = 4;
inline constexpr uint32_t kCallIds = 4;
inline constexpr uint32_t kStatusWithReason = 21;
inline constexpr uint32_t kStatusKilled = 22;
inline constexpr uint32_t kStatusServerGone = 2;

// One value for each profile, by its id.
template <class T>
using PerProfile = std::array<T, kProfiles + 1>;

// A pushed record.
struct Pushed {
    enum class What {
        Start,
        Refusal,
        Stop,
        Kill,
        End,
        Suspend,
        Resume,
        Change,
        Broadcast,
        Tunnel,
        Proper,
        Noise
    };

    What what;
    int serial = 0;       // of the connection that it is about; 0: of none
    int32_t profile = 0;  // or the application id
    uint32_t status = 0;
    uint32_t reason = 0;
    uint32_t number = 0;  // of a broadcast, of tunnel data
    int change = 0;       // of the address that it carries
    bool tunnel = false;  // a broadcast that carries tunnel data
};

struct Connection {
    enum class State { Starting, Up, Suspended, Ended };

    int serial;
    int link;
    uint32_t id;
    int32_t first;  // profile
    State state = State::Starting;
    bool killed = false;
    int change = 0;
    PerProfile<int> starts{};  // how often each profile was asked for

    // What of it has been pushed.
    bool told_up = false;
    int32_t first_up = 0;  // profile
    PerProfile<int> ups{};
    int changes = 0;
    int suspends = 0;
    int resumes = 0;
    int ends_to_push = 0;  // whatever tells of its end: a refusal, a stop, a kill, an indication
    uint64_t end_position = 0;

    bool live() const { return state != State::Ended; }
    bool holds(int32_t profile) const { return starts[static_cast<size_t>(profile)] > 0; }
};

class Truth {
  public:
    struct Link {
        bool dead = false;  // closed by the server
        bool gone = false;  // closed by the client
    };

    // Links are numbered from 1; 0 is none.
    int link() const { return static_cast<int>(links_.size()) - 1; }
    bool is_dead(int link) const { return links_[static_cast<size_t>(link)].dead; }
    bool is_broken() const { return is_dead(link()); }
    bool is_left() const { return links_.back().gone; }

    const Connection* find(int serial) const;
    // The one that the profile's last accepted start led to; 0: none.
    int current(int32_t profile) const { return current_[static_cast<size_t>(profile)]; }
    // Whether the library has been told everything about it, and nobody can get to it any more.
    bool is_finished(int serial) const;
    bool has_ended_by_itself(int serial) const;
    const std::deque<Connection>& connections() const { return connections_; }
    // What has been pushed over the current link.
    const std::vector<Pushed>& pushed() const { return pushed_; }
    bool has_pushed(Pushed::What what, int32_t profile, uint32_t status, std::optional<int32_t> reason) const;
    bool has_pushed_about(int serial, Pushed::What what, uint32_t status,
                          std::optional<int32_t> reason) const;

    // Changes.
    int new_link();
    Link& link_of(int number) { return links_[static_cast<size_t>(number)]; }
    Connection& new_connection(int32_t profile, uint32_t id);
    Connection& change(int serial) { return *const_cast<Connection*>(find(serial)); }
    void set_current(int32_t profile, int serial) { current_[static_cast<size_t>(profile)] = serial; }
    // Its place among everything that has been pushed.
    uint64_t push(const Pushed& pushed);
    // Everything up to this place has been handled by the library.
    void handled(uint64_t position) { handled_ = std::max(handled_, position); }

  private:
    std::vector<Link> links_ = {{}};
    std::deque<Connection> connections_;
    PerProfile<int> current_{};
    std::vector<Pushed> pushed_;
    uint64_t positions_ = 0;
    uint64_t handled_ = 0;
};

}  // namespace quorvel::lives
