// Who uses which profile on which connection, as far as one can say from outside: the promises of the library
// about connections, and what has been kept of them.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Op.h"
#include "Truth.h"

namespace quorvel::lives {

// A thread's use of a profile, from the accepted open on.
struct Use {
    uint64_t number = 0;
    std::vector<int> serials{};  // the connections that it may be a use of
    bool answered = false;       // its open
    bool closing = false;        // a close was accepted, or is under way
    bool left_closing = false;   // a close has failed, and the call stays as it is
    bool perhaps_gone = false;   // its thread has killed the profile: there may be nothing left to tell
    bool touched = false;        // by an event
    bool ended = false;          // by an event, before its open has returned
    bool perhaps_ended = false;  // or an earlier use that was perhaps still there
    int answers = 0;
    int suspends = 0;
    int resumes = 0;
    int suspends_owed = 0;
};

// An event about a connection.
struct Heard {
    uint32_t type;
    int32_t profile;
    uint32_t result;
    std::optional<int32_t> reason{};
    std::optional<Address> address{};
};

class Uses {
  public:
    explicit Uses(const Truth& truth) : truth_(truth) {}

    // ---- An open, from its beginning to its end.
    void opens(int user, int32_t profile);
    // The server has given the profile this connection.
    void starts(int32_t profile, int serial);
    // What is wrong with a success, or nothing. `exact`: the connection that it must be.
    std::string opened(int user, int32_t profile, std::optional<int> exact);
    // The same for a failure.
    std::string not_opened(int user, int32_t profile);

    // ---- What is held.
    const Use* find(int user, int32_t profile) const;
    Use* find(int user, int32_t profile);
    void drop(int user, int32_t profile) { at(user, profile).use.reset(); }
    bool has_any(int user) const;
    bool is_anybody_closing(int32_t profile) const;
    bool is_certainly_held(int32_t profile, int serial) const;
    // The numbers of uses that are surely there, of one profile and up, or of all.
    std::vector<uint64_t> up(int32_t profile) const;
    std::vector<uint64_t> held() const;
    bool is_still_there(uint64_t number) const;
    // Whose it is, or -1.
    int owner(uint64_t number) const;
    // Whether a connection that a use of the profile may be on has ended, or was given the id of one that had
    // ended by itself, and not everybody is told of that end.
    bool is_beside_an_end(int32_t profile) const;
    // The connections that uses of a profile may be on.
    std::vector<int> serials(int32_t profile) const;
    bool is_waiting(int user) const;

    // ---- What is told.
    // What is wrong with the event, or nothing; and takes it in.
    std::string hear(int user, const Heard& heard);
    // The server tells the users of this connection that it is suspended.
    void suspends(int serial);

    // Each promise that is not kept so far.
    void add_owed(std::vector<std::string>& owed) const;

  private:
    struct Slot {
        std::optional<Use> use;
        std::optional<Use> opening;
    };

    Slot& at(int user, int32_t profile) {
        return slots_[static_cast<size_t>(user)][static_cast<size_t>(profile)];
    }
    const Slot& at(int user, int32_t profile) const {
        return slots_[static_cast<size_t>(user)][static_cast<size_t>(profile)];
    }
    void for_each(const std::function<void(int, int32_t, const Use&)>& body) const;
    std::string objection(const Use& use, const Heard& heard) const;
    bool fits(const Use& use, const Connection& connection, const Heard& heard) const;
    void apply(std::optional<Use>& use, const Heard& heard, bool is_opening);
    bool is_lost(const Use& use) const;
    bool is_over(const Use& use) const;

    const Truth& truth_;
    std::array<PerProfile<Slot>, kUsers> slots_{};
    uint64_t count_ = 0;
};

}  // namespace quorvel::lives
