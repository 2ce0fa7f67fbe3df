#include <algorithm>
#include <atomic>
#include <barrier>
#include <thread>

#include "Benchmarks.h"
#include "quorvel/NetCM.h"

namespace quorvel::bench {
namespace {

constexpr int kThreads = 16;
constexpr int kRounds = 15;
constexpr int kRequests = 6400;  // of all threads together, in one round

// What each of a round's requests took.
using Waits = std::vector<double>;

void ask(int times, Waits& waits) {
    uint32_t status = 0;
    for (int i = 0; i < times; ++i) {
        const int64_t start = now_ns();
        NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status);
        waits.push_back(static_cast<double>(now_ns() - start));
    }
}

// Threads that keep asking, until all of them together have asked `requests` times: nobody is alone at the
// end.
int64_t ask_from_threads(int count, int requests, std::vector<Waits>& waits) {
    std::atomic<int> left = requests;
    std::barrier ready(count + 1);
    std::vector<std::thread> threads;
    waits.assign(static_cast<size_t>(count), {});
    for (int i = 0; i < count; ++i) {
        Waits& mine = waits[static_cast<size_t>(i)];
        mine.reserve(static_cast<size_t>(requests));
        threads.emplace_back([&ready, &mine, &left] {
            NetCMClientRegister(on_event);
            ready.arrive_and_wait();
            while (left.fetch_sub(1) > 0)
                ask(1, mine);
            ready.arrive_and_wait();
            NetCMClientDeRegister();
        });
    }
    ready.arrive_and_wait();
    const int64_t start = now_ns();
    ready.arrive_and_wait();
    const int64_t took = now_ns() - start;
    for (std::thread& thread : threads)
        thread.join();
    return took;
}

struct Measured {
    Rounds one_rate;
    Rounds all_rate;
    Rounds median_wait;
    Rounds longest_wait;
};

Measured measure() {
    Measured measured;
    for (int round = 0; round < kRounds; ++round) {
        std::vector<Waits> waits;
        measured.one_rate.push_back(kRequests * 1e6 /
                                    static_cast<double>(ask_from_threads(1, kRequests, waits)));
        measured.all_rate.push_back(kRequests * 1e6 /
                                    static_cast<double>(ask_from_threads(kThreads, kRequests, waits)));
        Waits together;
        for (const Waits& of_thread : waits)
            together.insert(together.end(), of_thread.begin(), of_thread.end());
        measured.median_wait.push_back(median(together));
        measured.longest_wait.push_back(*std::max_element(together.begin(), together.end()));
    }
    return measured;
}

void add(Report& report, const char* title, Bar rate_bar) {
    const Measured measured = measure();
    report.begin(title);
    report.add({"one thread", median(measured.one_rate), "requests per ms", "", 0, Bar::None, 0});
    report.add({"sixteen threads", median(measured.all_rate), "requests per ms", "x",
                ratio(measured.all_rate, measured.one_rate), rate_bar, 0.9});
    report.add({"median wait of a request", median(measured.median_wait) / 1000, "us", "", 0, Bar::None, 0});
    report.add({"longest wait of a request", median(measured.longest_wait) / 1000, "us", "x the median",
                ratio(measured.longest_wait, measured.median_wait), Bar::AtMost, 20});
}

}  // namespace

void measure_threads(Report& report) {
    add(report, "Sixteen threads on the one link", Bar::AtLeast);
}

void measure_threads_on_one_cpu(Report& report) {
    add(report, "The same, and the server too, on one CPU", Bar::None);
}

}  // namespace quorvel::bench
