#include "Life.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <latch>
#include <memory>
#include <thread>
#include <vector>

#include "Callbacks.h"
#include "Jitter.h"
#include "Remains.h"
#include "Report.h"
#include "Server.h"
#include "User.h"
#include "Watch.h"
#include "support/Eventually.h"

namespace quorvel::lives {
namespace {

constexpr std::chrono::seconds kPatience{30};
constexpr int kSignal = SIGUSR1;

void on_signal(int) {}

// Of this thread, and of those that it starts from now on.
void hold_signals_back(bool held) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, kSignal);
    pthread_sigmask(held ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
}

// Threads of an application, from the first thing that they do until they have left.
class Application {
  public:
    Application(Model& model, uint64_t seed, int users, int things) : lived_(users), may_leave_(1) {
        for (int number = 0; number < users; ++number)
            threads_.emplace_back([=, this, &model] {
                hold_signals_back(false);
                User user(model, number, Random(seed, static_cast<uint64_t>(number)));
                user.live(things);
                lived_.count_down();
                may_leave_.wait();
                user.leave();
            });
    }
    bool has_lived() const { return lived_.try_wait(); }
    void wait_until_lived() { lived_.wait(); }
    void leave() {
        may_leave_.count_down();
        for (std::thread& thread : threads_)
            thread.join();
    }
    pthread_t thread(int number) { return threads_[static_cast<size_t>(number)].native_handle(); }
    int size() const { return static_cast<int>(threads_.size()); }

  private:
    std::latch lived_;
    std::latch may_leave_;
    std::vector<std::thread> threads_;
};

// To a thread of the application, or to whichever the kernel likes.
void send_signals(Application& application, Random random) {
    while (!application.has_lived()) {
        if (random.one_in(4))
            kill(getpid(), kSignal);
        else
            pthread_kill(application.thread(random.below(application.size())), kSignal);
        std::this_thread::sleep_for(std::chrono::microseconds(random.between(20, 600)));
    }
}

void expect_nothing_owed(Model& model) {
    const std::vector<std::string> owed = model.wait_until_nothing_is_owed(kPatience);
    if (!owed.empty())
        model.object(std::to_string(owed.size()) + " promises are not kept, the first: " + owed.front());
}

// Everything that was promised is kept now.
void come_to_rest(Model& model, Server& server) {
    model.note(History::kTest, "everybody comes to rest");
    server.come_to_rest();
    server.broadcast();
    if (!test::eventually([&] { return server.is_done(); }, kPatience))
        model.object("the server cannot come to rest");
    expect_nothing_owed(model);
}

// A receiver that has registered itself leaves when it is called the next time.
void let_everybody_leave(Model& model, Server& server, Stage& stage, Application& application) {
    model.note(History::kTest, "everybody leaves");
    stage.let_everybody_leave();
    application.leave();
    const bool left = test::eventually(
        [&] {
            const bool gone = model.has_everybody_left();
            if (!gone)
                server.broadcast();
            return gone;
        },
        kPatience);
    if (!left)
        model.object("the receiver cannot leave");
}

void live_and_leave(uint64_t seed, Troubles troubles, Model& model) {
    Random random(seed, 3000);
    const int users = random.one_in(4) ? random.between(5, kAppUsers) : random.between(2, 4);
    const int things = random.between(10, users > 6 ? 25 : 60);
    Server server(model, seed);
    Stage stage(model, seed);
    const Watch watch(model);
    Application application(model, seed, users, things);
    if ((troubles & kSignals) != 0)
        send_signals(application, Random(seed, 3001));
    application.wait_until_lived();
    come_to_rest(model, server);
    let_everybody_leave(model, server, stage, application);
}

}  // namespace

void live(uint64_t seed, Troubles troubles) {
    struct sigaction action {};
    action.sa_handler = on_signal;  // without SA_RESTART
    sigaction(kSignal, &action, nullptr);
    hold_signals_back(true);
    disturb(Random(seed, 3002).next() | 1);

    const Remains remains;
    const auto model = std::make_unique<Model>(troubles, 10000 + static_cast<uint32_t>(seed % 40) * 1000);
    report::life_begins(seed, troubles, &model->history());
    live_and_leave(seed, troubles, *model);
    const std::string left = remains.find();
    if (!left.empty())
        model->object("the life leaves behind: " + left);
    report::life_ends();
}

}  // namespace quorvel::lives
