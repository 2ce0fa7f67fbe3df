// quorvel-server-bench: what a request, an event and an operator's command cost the server, with 10 of
// everything and with 20,000 profiles, 300 links and 4,000 clients, side by side in one run. Prints a table,
// and ends with status 1 when a bar is missed.
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "Measure.h"
#include "common/PmWire.h"
#include "server/Subject.h"

namespace quorvel::bench {
namespace {

using Clock = std::chrono::steady_clock;
constexpr Size kSmall{10, 10, 10};
constexpr Size kLarge{20'000, 300, 4'000};
constexpr int kRounds = 7;

struct Work {
    const char* name;
    int times;
    std::function<void(Subject&)> once;
};

class Table {
  public:
    void add(const std::string& what, const std::string& figures, bool good) {
        std::printf("%-44s %-46s %s\n", what.c_str(), figures.c_str(), good ? "ok" : "MISSED");
        std::fflush(stdout);
        missed_ += good ? 0 : 1;
    }
    int missed() const { return missed_; }

  private:
    int missed_ = 0;
};

std::string number(double value, const char* unit) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%10.2f %s", value, unit);
    return text.data();
}

std::string compared(double little, double much) {
    return number(little, "us") + number(much, "us") + number(much / little, "x");
}

// The server's processor time for one, in microseconds.
double cost(Subject& subject, const Work& work) {
    subject.enter();
    subject.drain();
    const int64_t before = subject.used();
    for (int i = 0; i < work.times; ++i)
        work.once(subject);
    return static_cast<double>(subject.used() - before) / 1000.0 / work.times;
}

// How long one takes who waits for it, in microseconds: the median.
double latency(Subject& subject, const Work& work) {
    std::vector<double> times;
    for (int i = 0; i < work.times; ++i) {
        const auto start = Clock::now();
        work.once(subject);
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    std::ranges::nth_element(times, times.begin() + work.times / 2);
    return times[static_cast<size_t>(work.times) / 2];
}

// The least of several rounds, in turn: what else the machine does only adds.
std::pair<double, double> least(Subject& small, Subject& large, const Work& work,
                                double (*measure)(Subject&, const Work&)) {
    std::pair<double, double> result{1e9, 1e9};
    for (int round = 0; round < kRounds; ++round) {
        result.first = std::min(result.first, measure(small, work));
        result.second = std::min(result.second, measure(large, work));
    }
    return result;
}

Work asks(const char* name, uint32_t command, size_t block = 0, uint32_t arg3 = 0, uint32_t arg4 = 0,
          uint32_t param = 0) {
    return {name, 200, [=](Subject& subject) {
                subject.peer().ask(command, arg3, arg4, {}, param);
                subject.peer().skip(block);
            }};
}

Work asks_pm(const char* name, uint32_t command, int32_t profile, std::string data = {}, uint32_t arg = 0,
             uint32_t arg2 = 0) {
    return {name, 100, [=](Subject& subject) { subject.peer().ask_pm(command, profile, data, arg, arg2); }};
}

std::string text_field(const std::string& text, size_t size) {
    std::string field = text;
    field.resize(size, '\0');
    return field;
}

std::vector<Work> all_works() {
    using namespace wire;
    return {
        asks("request: default profile", NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ),
        asks("request: network status", NETCM_CLIENT_GET_NETWORK_STATUS_REQ),
        asks("request: interfaces", NETCM_CLIENT_GET_NETIFACE_LIST_REQ),
        asks("request: active profiles", NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ, sizeof(ProfileIdBlock)),
        asks("request: their names", NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_REQ, sizeof(ProfileNameBlock)),
        asks("request: active connections", NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ,
             sizeof(ActiveConnectionBlock), 0, 0, NETCM_IFACE_PDP),
        asks("request: statistics", NETCM_CLIENT_GET_STAT_INFO_REQ, sizeof(StatisticsBlock)),
        asks("request: reset of statistics", NETCM_CLIENT_RESET_STAT_INFO_REQ),
        asks("request: setting", NETCM_CLIENT_GET_SETTINGS_REQ, 0, 1),
        asks("request: new setting", NETCM_CLIENT_SET_SETTINGS_REQ, 0, 1, 5),
        asks("request: packet-data state", NETCM_CLIENT_GET_PACKET_DATA_STATE_REQ, 0, 0, 1),
        asks("request: new packet-data state", NETCM_CLIENT_SET_PACKET_DATA_STATE_REQ, 0, 1, 1),
        {"request: tunnel data", 100,
         [](Subject& subject) {
             subject.peer().ask(NETCM_CLIENT_TUNNEL_REQ, 0, 16, std::string(16, 'x'));
             subject.peer().event(16);
         }},
        {"request: open and close", 100,
         [](Subject& subject) {
             const uint32_t call = subject.peer().open(3);
             subject.peer().close(call, 3);
         }},
        {"register and go", 100, [](Subject& subject) { Peer other(subject.path()); }},
        asks_pm("profile: read", NETPM_CLIENT_GET_PROFILE_REQ, 5),
        asks_pm("profile: status", NETPM_CLIENT_GET_PROFILE_STATUS_REQ, 5),
        asks_pm("profile: default", NETPM_CLIENT_GET_DEFAULT_PROFILE_REQ, 0),
        asks_pm("profile: find", 17, 0, text_field("net 5", sizeof(PmEssidField)), 1),
        asks_pm("profile: find by APN", 16, 0, text_field("shared", sizeof(PmApnField))),
        asks_pm("profile: make it the default", NETPM_CLIENT_SET_DEFAULT_PROFILE_ID_REQ, 1),
        asks_pm("profile: change", NETPM_CLIENT_MODIFY_PROFILE_REQ, 5, profile_of("shared")),
        {"profile: add and delete", 50,
         [](Subject& subject) {
             const int32_t id = subject.peer().ask_pm(NETPM_CLIENT_ADD_PROFILE_REQ, 0, profile_of("lonely"));
             subject.peer().ask_pm(NETPM_CLIENT_DELETE_PROFILE_REQ, id);
         }},
        {"application: add, ask, delete", 50,
         [](Subject& subject) {
             for (const uint32_t command : {1U, 3U, 8U, 2U})
                 subject.peer().ask_app(command, 4711);
         }},
        {"event: a link goes up and down", 40,
         [](Subject& subject) {
             subject.set_link(true);
             subject.set_link(false);
             subject.peer().ask(NETCM_CLIENT_GET_NETWORK_STATUS_REQ);
         }},
        {"ctl: suspend and resume", 50,
         [](Subject& subject) {
             subject.ctl("{\"command\":\"suspend\",\"profile\":1}");
             subject.ctl("{\"command\":\"resume\",\"profile\":1}");
         }},
        {"ctl: another address", 50,
         [](Subject& subject) {
             subject.ctl("{\"command\":\"ip-change\",\"profile\":1,\"address\":\"192.0.2.7\"}");
         }},
        {"ctl: payment", 50, [](Subject& subject) { subject.ctl("{\"command\":\"payment\"}"); }},
        {"ctl: faults", 50, [](Subject& subject) { subject.ctl("{\"command\":\"faults\"}"); }},
    };
}

void compare_sizes(Table& table, Subject& small, Subject& large) {
    constexpr double kMost = 2.0;
    for (const Work& work : all_works()) {
        const auto [little, much] = least(small, large, work, cost);
        table.add(work.name, compared(little, much), much <= kMost * little);
    }
}

void compare_latency(Table& table, Subject& small, Subject& large) {
    const auto [little, much] =
        least(small, large, asks("", wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ), latency);
    table.add("who waits for a network status",
              number(little, "us") + number(much, "us") + number(much - little, "us more"),
              much - little < 200.0);
}

void measure_fan_out(Table& table, Subject& large) {
    constexpr double kMost = 10.0;
    const Work work{"", 5, [](Subject& subject) { subject.ctl("{\"command\":\"network-status\"}"); }};
    double best = 1e9;
    double wait = 1e9;
    for (int round = 0; round < kRounds; ++round) {
        best = std::min(best, cost(large, work));
        large.drain();
        wait = std::min(wait, latency(large, {"", 1, work.once}));
        large.drain();
    }
    const auto clients = static_cast<double>(large.size().clients);
    table.add("an event to each of 4,000 clients",
              number(best / clients, "us each") + number(wait / clients, "us until the last"),
              best / clients < kMost);
}

void measure_close(Table& table, Subject& large) {
    // Profiles of one access point share a call; every other one is of it.
    const auto close_of = [&](int count) {
        Peer opener(large.path());
        uint32_t call = 0;
        for (int i = 0; i < count; ++i)
            call = opener.open(1 + 2 * i);
        const int64_t before = large.used();
        opener.close(call, 1);
        return static_cast<double>(large.used() - before) / 1000.0 / count;
    };
    const double few = std::min({close_of(500), close_of(500), close_of(500)});
    const double many = std::min(close_of(10'000), close_of(10'000));
    table.add("to close a call, for each profile of it", compared(few, many), many <= 2.0 * few + 0.5);
}

void measure_monitor(Table& table, Subject& small) {
    constexpr double kMost = 1.5;
    const Work work = asks("", wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ);
    double alone = 1e9;
    double watched = 1e9;
    for (int round = 0; round < kRounds; ++round) {
        alone = std::min(alone, cost(small, work));
        small.watch();
        watched = std::min(watched, cost(small, work));
        small.unwatch();
    }
    table.add("a request, and with a monitor attached", compared(alone, watched), watched <= kMost * alone);
}

// What a record of this kind adds, for the server and for who waits; its writer has its own row.
void measure_recorder(Table& table, Subject& small, const std::string& kind) {
    constexpr double kMost = 1.5;
    const std::string name = "recorded-" + kind;
    Subject recorded(name, kSmall, {"--record", "/tmp/" + name + "." + kind});
    Peer in_recorded(recorded.path());
    in_recorded.open(1);
    const Work work = asks("", wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ);
    const auto [alone, with] = least(small, recorded, work, cost);
    table.add("a request, and recorded as " + kind, compared(alone, with), with <= kMost * alone);
    const auto [wait_alone, wait_with] = least(small, recorded, work, latency);
    table.add("who waits for it, and recorded as " + kind, compared(wait_alone, wait_with),
              wait_with <= kMost * wait_alone);
    const int64_t before = recorded.used_by_child();
    constexpr int kTimes = 20'000;
    for (int i = 0; i < kTimes; ++i)
        work.once(recorded);
    usleep(100'000);
    const double writer = static_cast<double>(recorded.used_by_child() - before) / 1000.0 / kTimes;
    table.add("its writer's own time for a request, " + kind, number(writer, "us"), writer <= alone);
}

void prepare() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    if (limit.rlim_max < 9000 || setrlimit(RLIMIT_NOFILE, &limit) != 0)
        fail("4,000 clients need 9,000 file descriptors (ulimit -Hn)");
}

int run() {
    prepare();
    run_on(Cpus::One);
    std::printf("starting with %zu and with %zu profiles, %zu and %zu clients ...\n", kSmall.profiles,
                kLarge.profiles, kSmall.clients, kLarge.clients);
    Subject small("small", kSmall);
    Subject large("large", kLarge);
    // Somebody has a call open all the time, so that there is one to ask about.
    Peer in_small(small.path());
    Peer in_large(large.path());
    in_small.open(1);
    in_large.open(1);
    Table table;
    compare_sizes(table, small, large);
    compare_latency(table, small, large);
    measure_fan_out(table, large);
    measure_close(table, large);
    measure_monitor(table, small);
    for (const char* kind : {"jsonl", "pcapng"})
        measure_recorder(table, small, kind);
    if (table.missed() > 0)
        std::printf("%d bars are missed\n", table.missed());
    return table.missed() > 0 ? 1 : 0;
}

}  // namespace

std::string profile_of(const std::string& access_point) {
    wire::PmProfileSlot slot{};
    access_point.copy(slot.Profile.ProfileName, 16);
    access_point.copy(slot.Profile.PdpProfInfo.Apn, 16);
    slot.Profile.PdpProfInfo.AppProtoType = 1;
    return {reinterpret_cast<const char*>(&slot), sizeof(slot)};
}

}  // namespace quorvel::bench

int main() {
    return quorvel::bench::run();
}
