// One run of a scenario: the server that it meets, and what is objected to.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/AppThread.h"
#include "support/ScriptedServer.h"

namespace quorvel::sweep {

// What the header states for nearly every request of a registered process: done, the exchange failed, the
// link could not be repaired.
inline constexpr std::initializer_list<uint32_t> kRequest = {NETCM_SUCCESS, NETCM_ERR_FAILURE,
                                                             NETCM_ERR_REREGISTER_FAILED};

class Run {
  public:
    // What may fail: a run that is not hurt must succeed in everything. A start response whose block cannot
    // be read is told to nobody; the connection is not up, and can be closed.
    enum class Hurt { No, ButBlocksCome, AlsoBlocks };
    explicit Run(Hurt hurt);
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    // Everything ends: the server, and with it what the scenario has not brought to its end itself.
    void end();

    bool is_hurt() const { return hurt_ != Hurt::No; }

    // A result that the library has given, and those that the header states for it, success first. Whether it
    // is the first.
    bool result(const std::string& what, uint32_t got, std::initializer_list<uint32_t> stated = kRequest);
    // Something that has to hold in any run.
    bool expect(bool holds, const std::string& what);

    // The server forgets its scripts, but for the connections that come up at once.
    void be_good();
    // Until the server knows both sockets of a link that is up.
    void settle();

    // ---- What a user of the library does, checked as result() does. User 0 is the calling thread.
    bool enter(int user = 0);
    // Also when there was a failure, it is as if nobody had registered.
    bool enter_or_be_refused();
    void leave(int user = 0);
    // Opens the profile and waits for the outcome. Whether the connection is up.
    bool open(int32_t profile, int user = 0);
    // Closes it and waits for the outcome. False when that could not be asked for.
    bool close(int32_t profile, int user = 0);
    bool kill(int32_t profile, int user = 0);

    // Waits for an event of the type for the profile, for the end of the connection by the end of the link,
    // or, of an open, for what the server has pushed behind the outcome.
    enum class Told { Outcome, Lost, Unread, Nothing };
    Told wait_until_told(int user, uint32_t type, int32_t profile);
    // Whether the user has been told that a connection has ended with the link.
    static bool is_lost(int user, int32_t profile);

    template <class Body>
    auto as(int user, Body body) {
        return user == 0 ? body() : others_[user - 1].run(body);
    }

    const std::string& objections() const { return objections_; }

    test::ScriptedServer server;

  private:
    void end_of_user(int user);
    // What was pushed behind the outcomes of opens.
    static size_t markers(int user);

    Hurt hurt_;
    size_t markers_seen_ = 0;
    std::string objections_;
    test::AppThread others_[2];
};

struct Scenario {
    const char* name;
    std::function<void(Run&)> live;
    bool is_short = false;      // pairs of failures are few enough to be gone through
    bool may_keep_ids = false;  // a lookup that finds no memory keeps its id for the life of the process
};

inline void PrintTo(const Scenario& scenario, std::ostream* out) {
    *out << scenario.name;
}

const std::vector<Scenario>& scenarios();

}  // namespace quorvel::sweep
