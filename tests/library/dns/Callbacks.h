// What the callbacks of background lookups were given.
#pragma once

#include <netdb.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace quorvel::test::dns {

struct Delivery {
    unsigned id;
    bool found;
    std::string name;
    std::vector<std::string> addresses;
    int32_t thread;
};

namespace callbacks {

// The callback that notes what it is given.
void note(hostent* host, unsigned id);
// The same, and then does what `then` says, on the library's thread.
void note_and_continue(hostent* host, unsigned id);
void continue_with(std::function<void(hostent*, unsigned)> then);

std::vector<Delivery> deliveries();
std::vector<unsigned> ids();
// Waits for that many deliveries; false after 20 seconds.
bool wait_for(size_t count);
void clear();

}  // namespace callbacks
}  // namespace quorvel::test::dns
