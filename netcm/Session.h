// The registration of the main thread, and the events that come with it.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "Event.h"
#include "Queue.h"
#include "SignalWatch.h"

namespace quorvel::netcm {

using EventHandler = std::function<void(const Event&)>;
using EventTest = std::function<bool(const Event&)>;

// Registered from its first to its last moment. One at a time: the library's callback has no argument of
// ours, so that there is one queue in the process.
class Session {
  public:
    // Throws a Failure when the CM server cannot be reached. An interrupt is told to `on_interrupt` as well,
    // on the thread that watches for it.
    explicit Session(const std::function<void()>& on_interrupt = [] {});
    // Ends what `end` has not ended, and is silent about what fails.
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Gives every event to `seen` until the deadline or an interrupt.
    void follow(Deadline deadline, const EventHandler& seen);

    // The same up to an event that passes the test, which is returned and not given to `seen`; nothing when
    // the deadline or an interrupt came first.
    std::optional<Event> await(const EventTest& test, Deadline deadline, const EventHandler& seen);

    // Asks for a connection (profile 0: the default) and waits for the open response. Nothing when
    // interrupted or when the deadline has passed; throws a Failure when the connection is refused.
    std::optional<Event> open(int32_t profile, Deadline deadline, const EventHandler& seen);

    // Closes every connection that this thread uses, waits for the responses, and deregisters. The events
    // that arrive meanwhile go to `seen`.
    void end(const EventHandler& seen);

    bool interrupted() const;
    // The signal that has interrupted it, unless a terminal has sent that to other processes as well; or else
    // 0.
    int signal_to_hand_on() const { return watch_.signal_to_hand_on(); }
    // While another process is waited for nobody is in a hurry.
    void take_time(bool patient) { watch_.take_time(patient); }

    // From another thread: an event of netcm's own, among those of the library.
    static void tell(uint32_t type);

  private:
    void await_released(const EventHandler& seen);

    SignalWatch watch_;
    bool registered_ = false;
};

// The profiles that the calling thread has open, from the client table.
std::vector<int32_t> profiles_in_use();

}  // namespace quorvel::netcm
