// One call of the library, from before it is made until its result has been judged; and what happened
// meanwhile that has to do with the result.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorvel::lives {

// Users of a life are threads. The first sixteen are the application's; then come two for threads of the
// library that register themselves in a callback: the receiver, and whichever other. All the rest is nobody.
inline constexpr int kAppUsers = 16;
inline constexpr int kReceiverUser = 16;
inline constexpr int kLocalUser = 17;
inline constexpr int kUsers = 18;
inline constexpr int kNobody = 18;

class Model;

enum class Kind { Register, Deregister, Open, Close, Kill, Cleanup, Lookup, Tunnel, Proper, Exchange };

// What such a call needs to be registered: the process, or the thread itself.
enum class Needs { Process, Thread };

class Op {
  public:
    Op(Model& model, int user, Kind kind, const char* name, int32_t argument = 0,
       Needs needs = Needs::Process);
    ~Op();
    Op(const Op&) = delete;
    Op& operator=(const Op&) = delete;

    Model& model;
    const int user;
    const Kind kind;
    const char* const name;
    const int32_t argument;
    const Needs needs;
    const std::chrono::steady_clock::time_point since = std::chrono::steady_clock::now();

    // The rest is the model's.
    bool over = false;
    uint64_t begun = 0;
    int32_t profile = 0;                       // that it is about; of a default open when that is known
    bool was_registered = false;               // the user
    bool anybody = false;                      // may have been registered
    int most = 0;                              // may have been registered beside
    std::array<unsigned, kUsers> instances{};  // of everybody's registration, at the beginning
    int link = 0;                              // at the beginning
    bool broken = false;                       // the link was, at some time
    bool away = false;                         // the server was, at some time

    bool had_use = false;          // of the profile; of any, for a deregistration
    uint64_t use = 0;              // which
    bool was_closing = false;      // that use
    bool opening = false;          // the profile of an open is known
    bool alone = true;             // no other open of the profile was under way
    bool saw_closing = false;      // somebody's close or kill that concerns it
    bool saw_other_kill = false;   // another thread's, of the same profile
    bool had_kill = false;         // its own, of the same profile
    size_t places = 0;             // of kills, or of tunnel requests: taken at most
    uint64_t place = 0;            // its own
    std::vector<int> starts;       // connections that the server gave to the profile meanwhile
    std::vector<int32_t> reasons;  // why it refused one
    std::vector<int> serials;      // connections that the profile may have been on
    std::vector<uint64_t> held;    // uses that were there at the beginning, of any profile
    std::vector<uint64_t> up;      // uses of the profile that were up at the beginning
};

}  // namespace quorvel::lives
