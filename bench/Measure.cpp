#include "Measure.h"

#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <system_error>

namespace quorvel::bench {
namespace {

// CPUs and scheduling policy of this process; to begin with, those that it was started with.
class Placement {
  public:
    Placement() : policy_(sched_getscheduler(0)) {
        if (sched_getaffinity(0, sizeof cpus_, &cpus_) != 0 || sched_getparam(0, &priority_) != 0)
            fail("reading where this process runs");
    }

    Placement everywhere() const {
        Placement placement = *this;
        placement.policy_ = SCHED_OTHER;
        placement.priority_.sched_priority = 0;
        return placement;
    }

    Placement on_last_cpu() const {
        Placement placement = *this;
        int cpu = CPU_SETSIZE - 1;
        while (!CPU_ISSET(cpu, &cpus_))
            --cpu;
        CPU_ZERO(&placement.cpus_);
        CPU_SET(cpu, &placement.cpus_);
        return placement;
    }

    void take() const {
        if (sched_setaffinity(0, sizeof cpus_, &cpus_) != 0 ||
            sched_setscheduler(0, policy_, &priority_) != 0)
            fail("changing where this process runs");
    }

  private:
    [[noreturn]] static void fail(const char* what) {
        throw std::system_error(errno, std::generic_category(), what);
    }

    cpu_set_t cpus_{};
    int policy_;
    sched_param priority_{};
};

}  // namespace

void run_on(Cpus cpus) {
    static const Placement start;
    (cpus == Cpus::Every ? start.everywhere() : start.on_last_cpu()).take();
    setpriority(PRIO_PROCESS, 0, -20);  // where it is allowed, what else runs here disturbs less
}

int64_t now_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

double median(std::vector<double> values) {
    if (values.empty())
        return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::vector<Rounds> interleave(const std::vector<Contestant>& contestants, int rounds, int times) {
    for (const Contestant& contestant : contestants)
        contestant.run(times / 4 + 1);
    std::vector<Rounds> results(contestants.size());
    for (int round = 0; round < rounds; ++round)
        for (size_t i = 0; i < contestants.size(); ++i)
            results[i].push_back(static_cast<double>(contestants[i].run(times)) / times);
    return results;
}

double ratio(const Rounds& ours, const Rounds& anchor) {
    std::vector<double> ratios;
    for (size_t i = 0; i < ours.size() && i < anchor.size(); ++i)
        ratios.push_back(ours[i] / anchor[i]);
    return median(ratios);
}

}  // namespace quorvel::bench
