#include "Callbacks.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <thread>
#include <utility>

#include "Report.h"
#include "User.h"

namespace quorvel::lives {
namespace {

std::atomic<Stage*> stage{nullptr};
std::atomic<int> in_callbacks{0};

constexpr unsigned kMostActs = 300;

template <int Number>
void callback(NetCMEvent* event) {
    ++in_callbacks;
    Stage* now = stage.load();
    if (now == nullptr)
        report::fail("a callback is called after everybody has left");
    now->hear(Number, *event);
    --in_callbacks;
}

template <int... Numbers>
constexpr std::array<NetCMEventCallback, sizeof...(Numbers)> make_callbacks(
    std::integer_sequence<int, Numbers...>) {
    return {callback<Numbers>...};
}

// Nobody has one too, which is never registered.
constexpr auto callbacks = make_callbacks(std::make_integer_sequence<int, kUsers + 1>());

int32_t this_thread() {
    return static_cast<int32_t>(syscall(SYS_gettid));
}

// The others come also from threads that end when the callback returns.
bool is_surely_the_receivers(const NetCMEvent& event) {
    return event.EventType != NETCM_EVENT_OPEN_RSP && event.EventType != NETCM_EVENT_CLOSE_RSP;
}

}  // namespace

NetCMEventCallback callback_of(int user) {
    return callbacks.at(static_cast<size_t>(user));
}

Stage::Stage(Model& model, uint64_t seed) : model_(model), seed_(seed) {
    stage = this;
}

// The last to leave may be the receiver, by a callback that has not returned yet.
Stage::~Stage() {
    while (in_callbacks != 0)
        std::this_thread::yield();
    stage = nullptr;
}

void Stage::hear(int user, const NetCMEvent& event) {
    model_.hear(user, event);
    if (model_.has(kCallbacks))
        act(event);
    model_.has_heard(user, event);
}

void Stage::act(const NetCMEvent& event) {
    const auto number = calls_++;
    Random random(seed_, 2000 + number);
    const int32_t thread = this_thread();
    // What is done here is told about in callbacks, which would go on for ever.
    if (number > kMostActs && !leaving_)
        return;
    if (receiver_ == thread)
        return act_as_receiver(random, thread);
    if (leaving_)
        return;
    switch (random.below(6)) {
        case 0:
            return act_as_nobody(random);
        case 1:
            if (!is_surely_the_receivers(event))
                return visit(random, kLocalUser, false);
            if (receiver_ == 0)
                return act_as_receiver(random, thread);
            return;
        default:
            return;
    }
}

void Stage::act_as_nobody(Random& random) {
    User nobody(model_, kNobody, random);
    switch (random.below(6)) {
        case 0:
            return nobody.open();
        case 1:
            return nobody.close(nobody.any_profile());
        case 2:
            return nobody.kill(nobody.any_profile());
        case 3:
            nobody.deregister();
            return;
        case 4:
            return nobody.look_up(nobody.any_profile());
        default:
            return nobody.ask();
    }
}

// Comes, does a few things, and goes within one callback, once or twice; or stays for the next.
void Stage::visit(Random& random, int number, bool stays) {
    User user(model_, number, random);
    do {
        if (!user.is_registered())
            user.register_here();
        for (int things = user.random().below(4); things > 0; --things) {
            if (stays && user.random().one_in(2))
                user.open();
            else if (stays && user.random().one_in(3))
                user.close(user.any_profile());
            else if (number == kReceiverUser && model_.has(kKills) && user.random().one_in(4))
                user.kill(user.any_profile());
            else
                user.ask();
        }
        if (stays && user.random().one_in(2))
            return;
    } while (user.deregister() && user.random().one_in(3));
    // Nobody may be left behind on a thread that ends.
    while (!stays && user.is_registered())
        user.deregister();
}

void Stage::act_as_receiver(Random& random, int32_t thread) {
    receiver_ = thread;
    if (leaving_)
        leave_as_receiver(random);
    else
        visit(random, kReceiverUser, may_stay());
    if (!model_.is_registered(kReceiverUser))
        receiver_ = 0;
}

// What it closes is answered after this callback: then it comes here again.
void Stage::leave_as_receiver(Random& random) {
    User user(model_, kReceiverUser, random);
    for (const int32_t profile : user.held())
        user.close(profile);
    if (!user.deregister() || !random.one_in(2))
        return;
    user.register_here();
    user.deregister();
}

}  // namespace quorvel::lives
