#include "SignalWatch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <system_error>
#include <utility>

namespace quorvel::netcm {
namespace {

sigset_t watched_signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

int checked(int descriptor, const char* what) {
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return descriptor;
}

enum class Wake { kSignal, kStop, kTime };

// Waits for the next signal, which goes to `number`; a time below 0 is for ever.
Wake next_signal(int signals, int stop, int milliseconds, int& number) {
    std::array<pollfd, 2> ready{pollfd{stop, POLLIN, 0}, pollfd{signals, POLLIN, 0}};
    int count;
    do {
        count = poll(ready.data(), ready.size(), milliseconds);
    } while (count < 0 && errno == EINTR);
    signalfd_siginfo info{};
    if (count == 0) {
        return Wake::kTime;
    }
    if (ready[0].revents != 0 || read(signals, &info, sizeof info) != sizeof info) {
        return Wake::kStop;
    }
    number = static_cast<int>(info.ssi_signo);
    return Wake::kSignal;
}

[[noreturn]] void die_of(int number) {
    std::signal(number, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, number);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    raise(number);
    _exit(128 + number);
}

void watch(int signals, int stop, const std::function<void()>& on_signal) {
    constexpr int kForEver = -1;
    constexpr int kTooLong = 1000;
    int number = 0;
    if (next_signal(signals, stop, kForEver, number) == Wake::kStop) {
        return;
    }
    on_signal();
    Wake wake = next_signal(signals, stop, kTooLong, number);
    if (wake == Wake::kTime) {
        std::fputs("netcm: waiting for the CM server's answer; a second signal ends this at once\n", stderr);
        wake = next_signal(signals, stop, kForEver, number);
    }
    if (wake == Wake::kSignal) {
        die_of(number);
    }
}

}  // namespace

SignalWatch::SignalWatch(std::function<void()> on_signal) {
    const sigset_t set = watched_signals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    signals_ = checked(signalfd(-1, &set, SFD_CLOEXEC), "signalfd");
    stop_ = checked(eventfd(0, EFD_CLOEXEC), "eventfd");
    thread_ = std::thread(watch, signals_, stop_, std::move(on_signal));
}

SignalWatch::~SignalWatch() {
    eventfd_write(stop_, 1);
    thread_.join();
    close(signals_);
    close(stop_);
    const sigset_t set = watched_signals();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace quorvel::netcm
