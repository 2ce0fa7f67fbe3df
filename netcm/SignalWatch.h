// SIGINT and SIGTERM as a polite request, and as an order when they come a second time.
#pragma once

#include <functional>
#include <thread>

namespace quorvel::netcm {

// While it lives the first of the two signals calls `on_signal` on a thread of its own, and the second ends
// the process at once, as it would have without the watch: a request to a server that does not answer blocks
// for up to a minute, and nobody should have to wait for it. It is made before any other thread, which then
// has the signals blocked as well.
class SignalWatch {
  public:
    explicit SignalWatch(std::function<void()> on_signal);
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

  private:
    int signals_;
    int stop_;
    std::thread thread_;
};

}  // namespace quorvel::netcm
