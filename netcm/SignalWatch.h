// SIGINT and SIGTERM as a polite request, and as an order when they come a second time or nobody heeds them.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace quorvel::netcm {

// While it lives the first of the two signals calls `on_signal` on a thread of its own. A second one, or five
// seconds without an end, ends the process, as the signal would have without the watch: a request to a server
// that does not answer blocks for up to a minute, and nobody should have to wait for it. It is made before
// any other thread, which then has the signals blocked as well.
class SignalWatch {
  public:
    explicit SignalWatch(std::function<void()> on_signal);
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    // The first signal, unless a terminal has sent it, which sends it to other processes as well; or else 0.
    int signal_to_hand_on() const { return to_hand_on_; }
    // Whether an end may take longer than five seconds.
    void take_time(bool patient) { patient_ = patient; }

  private:
    void watch(const std::function<void()>& on_signal);
    void insist();

    std::atomic<int> to_hand_on_ = 0;
    std::atomic<bool> patient_ = false;
    int first_ = 0;
    int signals_;
    int stop_;
    std::thread thread_;
};

}  // namespace quorvel::netcm
