#include "TimeLimit.h"

#include <sys/time.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <string_view>

namespace quorvel::netcm {
namespace {

void end_now(int) {
    constexpr std::string_view kText = "netcm: the CM server has not answered within the time-out\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kText.data(), kText.size());
    _exit(1);
}

void set_timer(double seconds) {
    double whole = 0;
    const double rest = std::modf(seconds, &whole);
    itimerval timer{};
    timer.it_value.tv_sec = static_cast<time_t>(whole);
    timer.it_value.tv_usec = static_cast<suseconds_t>(rest * 1e6);
    setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace

void start_time_limit(double seconds) {
    // Whoever waits for an event has the same limit, and better words.
    constexpr double kLater = 0.2;
    struct sigaction action {};
    action.sa_handler = end_now;
    sigaction(SIGALRM, &action, nullptr);
    set_timer(seconds + kLater);
}

void stop_time_limit() {
    set_timer(0);
}

}  // namespace quorvel::netcm
