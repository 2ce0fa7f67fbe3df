#include <pthread.h>
#include <sched.h>
#include <semaphore.h>

#include <array>
#include <atomic>
#include <cstring>
#include <string>

#include "Ares.h"
#include "Benchmarks.h"
#include "Responder.h"
#include "dns/src/NetDNSPrivate.h"
#include "quorvel/NetCM.h"
#include "quorvel/NetDNS.h"

namespace quorvel::bench {
namespace {

constexpr int kRounds = 41;
constexpr int kTimes = 20;
constexpr int kAtATime = 10;
constexpr int32_t kProfile = 1;

// A semaphore that blocks at once: the standard library's tries for a while, which on one CPU takes the time
// from what it waits for.
class Event {
  public:
    Event() { sem_init(&semaphore_, 0, 0); }
    void set() { sem_post(&semaphore_); }
    void wait() {
        while (sem_wait(&semaphore_) != 0) {
        }
    }

  private:
    sem_t semaphore_;
};

Event opened;

// The connection whose interface and name server the lookups take.
class Connection {
  public:
    Connection() {
        must(NetCMClientRegister([](NetCMEvent*) { opened.set(); }) == NETCM_SUCCESS, "registration");
        must(NetCMConnectionOpen(&kProfile, 1) == NETCM_SUCCESS, "opening the connection");
        opened.wait();
    }
    ~Connection() { NetCMClientDeRegister(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
};

// A name for the nth lookup.
using NthName = std::string (*)(int n);

// Never asked for before: the cache does not have it. As long as the name that the server knows.
std::string name_for_the_server(int n) {
    std::string name = kHostName;
    const std::string digits = std::to_string(n);
    return name.replace(strlen("www."), digits.size(), digits);
}

// Answered at once, so that little more than the thread is left.
std::string name_of_this_machine(int n) {
    return "127.0.0." + std::to_string(n % 250 + 1);
}

int lookups = 0;

std::atomic<int> outstanding{0};
std::atomic<bool> all_resolved{true};
Event all_delivered;

void deliver(hostent* host, unsigned) {
    if (host == nullptr)
        all_resolved = false;
    if (--outstanding == 0)
        all_delivered.set();
}

void look_up_in_background(NthName nth_name) {
    outstanding = kAtATime;
    for (int i = 0; i < kAtATime; ++i) {
        const std::string name = nth_name(++lookups);
        unsigned id = 0;
        // A worker that has delivered its result may still count as one.
        while (NetDNSGetHostByNameAsync(kProfile, name.c_str(), deliver, &id) == 0)
            sched_yield();
    }
    all_delivered.wait();
    must(all_resolved, "a lookup in the background");
}

// What an application can do without the lookups in the background.
void* look_up(void* name) {
    return NetDNSGetHostByName(kProfile, static_cast<const char*>(name)) != nullptr ? name : nullptr;
}

// The inner lookup by itself, which the library does not offer and takes no lock for.
void* look_up_freely(void* name) {
    char buffer[1024];
    hostent* host = nullptr;
    const int code =
        ps_gethostbyname_r(kProfile, static_cast<const char*>(name), &host, buffer, sizeof buffer);
    return code == kResolved ? name : nullptr;
}

void look_up_in_new_threads(NthName nth_name, void* (*look_up_one)(void*)) {
    std::array<std::string, kAtATime> names;
    std::array<pthread_t, kAtATime> threads;
    for (size_t i = 0; i < names.size(); ++i) {
        names[i] = nth_name(++lookups);
        must(pthread_create(&threads[i], nullptr, look_up_one, names[i].data()) == 0, "a thread");
    }
    for (const pthread_t thread : threads) {
        void* resolved = nullptr;
        pthread_join(thread, &resolved);
        must(resolved != nullptr, "a lookup on a thread");
    }
}

// What an application with an event loop does: no threads, everything in flight on one channel.
void look_up_in_one_loop(Ares& channel, NthName nth_name, int addresses) {
    for (int i = 0; i < kAtATime; ++i)
        channel.ask(nth_name(++lookups).c_str(), addresses);
    channel.wait();
}

// All ways, beside each other in the report. Each name has so many addresses.
void measure(Report& report, const char* title, NthName nth_name, int addresses) {
    const auto in_new_threads = [=](void* (*look_up_one)(void*)) {
        return
            [=](int times) { return time_of(times, [=] { look_up_in_new_threads(nth_name, look_up_one); }); };
    };
    const auto in_one_loop = [=](Ares& channel) {
        return [=, &channel](int times) {
            return time_of(times, [&] { look_up_in_one_loop(channel, nth_name, addresses); });
        };
    };
    Ares ordinary(kHostsFileAndServer);
    Ares leanest(kServerOnly, ARES_FLAG_STAYOPEN);
    const std::vector<Contestant> contestants{
        {"a new thread for each", in_new_threads(look_up)},
        {"the same, past the lookup mutex", in_new_threads(look_up_freely)},
        {"ten in the background",
         [=](int times) { return time_of(times, [=] { look_up_in_background(nth_name); }); }},
        {"c-ares, one channel in one event loop", in_one_loop(ordinary)},
        {"the same, no hosts file, its socket kept", in_one_loop(leanest)},
    };
    const std::vector<Rounds> rounds = interleave(contestants, kRounds, kTimes);
    report.begin(title);
    report.add(contestants, rounds, 0, "us", 1000);
}

}  // namespace

void measure_background(Report& report) {
    const Responder responder;
    const Connection connection;
    measure(report, "Ten lookups at a time in the background, from a server", name_for_the_server,
            kHostAddresses);
    measure(report, "Ten lookups at a time in the background, answered without a server",
            name_of_this_machine, 1);
}

}  // namespace quorvel::bench
