#include "watchdog.h"

#include <systemd/sd-daemon.h>

#include <algorithm>

namespace quorvel::cm {

Watchdog::Watchdog(event_base* base) : again_(base, [this] { tell(); }) {
    uint64_t microseconds = 0;
    if (sd_watchdog_enabled(0, &microseconds) <= 0)
        return;
    // Twice in its time: one that comes late is no death.
    every_ = std::max(std::chrono::milliseconds(microseconds / 2000), std::chrono::milliseconds(1));
    again_.start(every_);
}

void Watchdog::tell() {
    sd_notify(0, "WATCHDOG=1");
    again_.start(every_);
}

}  // namespace quorvel::cm
