// Tells the service manager that the server still goes round.
#pragma once

#include <chrono>

#include "events.h"

namespace quorvel::cm {

// Says so from the event loop, as often as the service manager has asked for by WATCHDOG_USEC, and never when
// it has not: a loop that something holds up says nothing, and the server is started anew.
class Watchdog {
  public:
    explicit Watchdog(event_base* base);

  private:
    void tell();

    std::chrono::milliseconds every_{0};
    Timer again_;
};

}  // namespace quorvel::cm
