// The way of events and interrupts to the main thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>

#include "Event.h"

namespace quorvel::netcm {

using Deadline = std::optional<std::chrono::steady_clock::time_point>;

Deadline in(std::chrono::duration<double> time);
bool has_passed(Deadline deadline);

enum class OnInterrupt { kReturn, kKeepWaiting };

class EventQueue {
  public:
    // From the thread that delivers.
    void push(Event event);
    // From the thread that watches for signals.
    void interrupt();

    bool interrupted() const;

    // The next event, at once when there is one; nothing when the deadline has passed, or after an interrupt.
    // No deadline waits for ever.
    std::optional<Event> next(Deadline deadline, OnInterrupt on_interrupt = OnInterrupt::kReturn);

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Event> events_;
    bool interrupted_ = false;
};

}  // namespace quorvel::netcm
