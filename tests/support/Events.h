// What reaches an application's callbacks.
//
// A callback has no argument of its own, so there is one function for each user of a test: `callback_of(3)`
// is the third user's. Every call is kept, with a copy of what the event pointed to.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "quorvel/NetCM.h"
#include "support/Hook.h"

namespace quorvel::test {

struct Event {
    int user;
    uint32_t type;
    int32_t profile;
    int32_t result;
    bool has_data;
    std::vector<uint32_t> words;           // Data as words, for the types that carry words
    std::optional<NetCMConnInfo> details;  // Data as connection record, for the types that carry one
    std::string tunnel_data;               // Data's data, for tunnel events
    int32_t thread;                        // kernel thread id of the delivering thread
    bool mutex_was_held;                   // by that thread
};

namespace events {

inline constexpr int kUsers = 20;
inline constexpr std::chrono::seconds kPatience{20};

NetCMEventCallback callback_of(int user);

std::vector<Event> all();
std::vector<Event> of(int user);
size_t count();
void clear();

// Waits until as many events are there, of all users or of one.
bool wait_for(size_t count, std::chrono::milliseconds patience = kPatience);
bool wait_for_user(int user, size_t count, std::chrono::milliseconds patience = kPatience);

// Runs inside every callback, after the event was kept. For tests that call the library from a callback.
Hook<const Event&> during(std::function<void(const Event&)> body);

}  // namespace events
}  // namespace quorvel::test
