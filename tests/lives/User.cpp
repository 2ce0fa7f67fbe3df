#include "User.h"

#include <sched.h>

#include <thread>

#include "Callbacks.h"
#include "Questions.h"

namespace quorvel::lives {
namespace {

constexpr std::chrono::seconds kPatience{30};

}  // namespace

void User::register_here() {
    Op op(model_, number_, Kind::Register, "NetCMClientRegister");
    const uint32_t result = NetCMClientRegister(callback_of(number_));
    model_.registered(op, result);
}

bool User::deregister() {
    Op op(model_, number_, Kind::Deregister, "NetCMClientDeRegister", 0, Needs::Thread);
    const uint32_t result = NetCMClientDeRegister();
    model_.deregistered(op, result);
    return result != NETCM_ERR_ALREADY_EXISTS;
}

void User::open() {
    if (random_.one_in(12))
        return open_default();
    // Only the first of them counts.
    const int32_t profiles[3] = {any_profile(), 77, -5};
    Op op(model_, number_, Kind::Open, "NetCMConnectionOpen", profiles[0], Needs::Thread);
    const uint32_t result = NetCMConnectionOpen(profiles, random_.one_in(8) ? 3 : 1);
    model_.opened(op, result);
}

// One at a time, so that it is known whose the answer is that the server gives.
void User::open_default() {
    if (!model_.take_default_open())
        return;
    {
        const int32_t by_default = 0;
        Op op(model_, number_, Kind::Open, "NetCMConnectionOpen", by_default, Needs::Thread);
        const uint32_t result = NetCMConnectionOpen(&by_default, 1);
        model_.opened(op, result);
    }
    model_.give_default_open();
}

void User::close(int32_t profile) {
    if (!model_.has(kImpatience) && model_.is_waiting_for(number_, profile))
        return;
    Op op(model_, number_, Kind::Close, "NetCMConnectionClose", profile, Needs::Thread);
    const uint32_t result = NetCMConnectionClose(profile);
    model_.closed(op, result);
}

void User::kill(int32_t profile) {
    Op op(model_, number_, Kind::Kill, "NetCMConnectionKill", profile, Needs::Thread);
    const uint32_t result = NetCMConnectionKill(profile);
    model_.killed(op, result);
}

void User::look_up(int32_t profile) {
    NetCMConnInfo info{};
    Op op(model_, number_, Kind::Lookup, "NetCMDeviceGetInfo", profile);
    const uint32_t result = NetCMDeviceGetInfo(profile, &info);
    model_.looked_up(op, result, info);
}

void User::clean_up() {
    Op op(model_, number_, Kind::Cleanup, "NetCMConnectionCleanup");
    const uint32_t result = NetCMConnectionCleanup();
    model_.cleaned_up(op, result);
}

void User::ask() {
    ask_something(model_, number_, random_);
}

int32_t User::some_profile() {
    const std::vector<int32_t> mine = held();
    if (mine.empty() || random_.one_in(4))
        return any_profile();
    return mine[static_cast<size_t>(random_.below(static_cast<int>(mine.size())))];
}

void User::rest() {
    if (random_.one_in(2))
        sched_yield();
    else
        std::this_thread::sleep_for(std::chrono::microseconds(random_.below(400)));
}

// Who has something open cannot leave.
void User::leave_or_stay() {
    if (model_.has(kDepartures))
        deregister();
}

void User::act() {
    const int what = random_.below(100);
    if (what < 22)
        open();
    else if (what < 38)
        close(some_profile());
    else if (what < 44)
        model_.has(kKills) ? kill(some_profile()) : look_up(some_profile());
    else if (what < 50)
        look_up(some_profile());
    else if (what < 53)
        leave_or_stay();
    else if (what < 54)
        model_.has(kKills) && random_.one_in(3) ? clean_up() : register_here();
    else if (what < 57)
        ask_nonsense(model_, random_);
    else if (what < 70)
        model_.wait_for_answers(number_, std::chrono::microseconds(random_.below(1500)));
    else if (what < 78)
        rest();
    else
        ask();
}

void User::live(int things) {
    for (int i = 0; i < things; ++i) {
        if (!is_registered() && !random_.one_in(6))
            register_here();
        act();
    }
}

void User::leave() {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (is_registered()) {
        for (const int32_t profile : held())
            close(profile);
        model_.wait_for_answers(number_, std::chrono::milliseconds(100));
        if (deregister())
            return;
        if (std::chrono::steady_clock::now() > deadline)
            model_.object("user" + std::to_string(number_) + " cannot leave");
    }
}

}  // namespace quorvel::lives
