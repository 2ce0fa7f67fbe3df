// c-ares as its users have it: a channel, and a loop that waits for whatever is in flight on it.
#pragma once

#include <ares.h>

namespace quorvel::bench {

// Where a channel looks a name up.
inline constexpr char kHostsFileAndServer[] = "fb";
inline constexpr char kServerOnly[] = "b";

class Ares {
  public:
    // A channel that asks the responder. Without flags it has a socket while something is in flight.
    explicit Ares(const char* lookups, int flags = 0);
    ~Ares();
    Ares(const Ares&) = delete;
    Ares& operator=(const Ares&) = delete;

    // Puts a lookup on its way. The name has so many addresses.
    void ask(const char* name, int addresses);
    // Until every lookup on its way has been answered. Ends the benchmark when an answer does not come, or
    // not with all its addresses.
    void wait();

  private:
    void process_one_wakeup();
    void take(int status, ares_addrinfo* answer);

    ares_channel channel_ = nullptr;
    int in_flight_ = 0;
    int expected_addresses_ = 0;
    bool all_resolved_ = true;
};

}  // namespace quorvel::bench
