// Promises that are no connections: kills, answers to tunnel requests and to questions for a proper profile,
// and what goes to every registered thread.
//
// The table of kills, and that of proper profiles, is answered from its first entry to the first that is
// about something else: one behind such an entry may stay untold, and then keeps its place.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Registrations.h"
#include "Truth.h"

namespace quorvel::lives {

// A thread's place in one of those tables. `key` is the profile, or the application id.
class Places {
  public:
    // `once`: a thread has at most one place for a key.
    Places(const char* what, size_t room, bool once) : what_(what), room_(room), once_(once) {}

    // Asked for, and perhaps under way; its number.
    uint64_t take(int user, int32_t key, unsigned instance);
    // What came of it. Where a thread has one place for a key, an older one has been free then.
    void keep(uint64_t number, bool only_perhaps);
    void give_back(uint64_t number);
    // Whether the thread has one, which it has no more: rather one of this registration than of an earlier
    // one.
    bool tell(int user, int32_t key, unsigned instance);
    bool was_told(uint64_t number) const;

    bool has(int user, int32_t key) const;
    bool has_another(int user, int32_t key) const;
    bool has_any(int32_t first_key, int32_t last_key) const;
    size_t count() const { return places_.size(); }
    // Several things at once: anybody may stay untold from now on.
    void mix() { mixed_ = true; }
    // The link is new, and so is the table.
    void forget();
    void add_owed(const Registrations& registrations, std::vector<std::string>& owed) const;

  private:
    struct Place {
        uint64_t number;
        int user;
        int32_t key;
        unsigned instance;
        bool kept;     // accepted
        bool perhaps;  // nobody knows whether it was
        bool perhaps_told = false;
    };

    const char* what_;
    size_t room_;
    bool once_;
    std::vector<Place> places_;
    std::vector<Place> lost_;  // with the link; what it has brought before may still be told
    std::set<uint64_t> told_;
    uint64_t count_ = 0;
    bool mixed_ = false;
};

// Tunnel requests, by the id that the server has given them.
class Tunnels {
  public:
    void give(uint32_t id) { requests_[id] = {}; }
    void answer(uint32_t id) { requests_[id].answered = true; }
    // What is wrong, or nothing.
    std::string accepted(uint32_t id, int user, unsigned instance);
    std::string hear(uint32_t id, int user, bool is_asking);
    size_t pending() const;
    void forget() { requests_.clear(); }
    void add_owed(const Registrations& registrations, std::vector<std::string>& owed) const;

  private:
    struct Request {
        bool answered = false;
        int owner = -1;
        unsigned instance = 0;
        int told = -1;
    };

    std::map<uint32_t, Request> requests_;
};

// What goes to every registered thread; each has a number of its own.
class Broadcasts {
  public:
    uint32_t next() { return ++count_; }
    void push(uint32_t number, bool tunnel, uint64_t position, const Registrations& registrations);
    // What is wrong, or nothing.
    std::string hear(uint32_t number, bool tunnel, int user);
    uint64_t position(uint32_t number) const { return pushed_.at(number).position; }
    // A thread that is about to leave need not be told any more, and nobody when the link is lost.
    void release(int user) { owed_[static_cast<size_t>(user)].clear(); }
    void release_all();
    void add_owed(std::vector<std::string>& owed) const;

  private:
    struct Pushed {
        bool tunnel;
        uint64_t position;
    };

    uint32_t count_ = 0;
    std::map<uint32_t, Pushed> pushed_;
    std::array<std::set<uint32_t>, kUsers> owed_;
    std::array<std::set<uint32_t>, kUsers> told_;
};

}  // namespace quorvel::lives
