#include "SignalWatch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
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

// Waits for the next signal, which goes to `info`; a time below 0 is for ever.
Wake next_signal(int signals, int stop, int milliseconds, signalfd_siginfo& info) {
    std::array<pollfd, 2> ready{pollfd{stop, POLLIN, 0}, pollfd{signals, POLLIN, 0}};
    int count;
    do {
        count = poll(ready.data(), ready.size(), milliseconds);
    } while (count < 0 && errno == EINTR);
    if (count == 0) {
        return Wake::kTime;
    }
    if (ready[0].revents != 0 || read(signals, &info, sizeof info) != sizeof info) {
        return Wake::kStop;
    }
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

}  // namespace

void SignalWatch::watch(const std::function<void()>& on_signal) {
    constexpr int kForEver = -1;
    signalfd_siginfo info{};
    if (next_signal(signals_, stop_, kForEver, info) == Wake::kStop) {
        return;
    }
    first_ = static_cast<int>(info.ssi_signo);
    to_hand_on_ = info.ssi_code == SI_KERNEL ? 0 : first_;
    on_signal();
    insist();
}

void SignalWatch::insist() {
    using namespace std::chrono;
    constexpr milliseconds kStep(100);
    constexpr seconds kHint(1);
    constexpr seconds kLimit(5);
    milliseconds waited(0);
    signalfd_siginfo info{};
    for (;;) {
        const Wake wake = next_signal(signals_, stop_, static_cast<int>(kStep.count()), info);
        if (wake == Wake::kStop) {
            return;
        }
        if (wake == Wake::kSignal) {
            die_of(static_cast<int>(info.ssi_signo));
        }
        if (patient_) {
            continue;
        }
        waited += kStep;
        if (waited == kHint) {
            std::fputs("netcm: waiting for the CM server's answer; a second signal ends this at once\n",
                       stderr);
        }
        if (waited >= kLimit) {
            std::fputs("netcm: the CM server does not answer; ending without it\n", stderr);
            die_of(first_);
        }
    }
}

SignalWatch::SignalWatch(std::function<void()> on_signal) {
    const sigset_t set = watched_signals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    signals_ = checked(signalfd(-1, &set, SFD_CLOEXEC), "signalfd");
    stop_ = checked(eventfd(0, EFD_CLOEXEC), "eventfd");
    thread_ = std::thread([this, on_signal = std::move(on_signal)] { watch(on_signal); });
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
