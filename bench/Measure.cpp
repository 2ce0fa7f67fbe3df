#include "Measure.h"

#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <system_error>

namespace quorvel::bench {

void pin_to_one_cpu() {
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0)
        throw std::system_error(errno, std::generic_category(), "sched_getaffinity");
    int last = 0;
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu)
        if (CPU_ISSET(cpu, &allowed))
            last = cpu;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(last, &one);
    if (sched_setaffinity(0, sizeof one, &one) != 0)
        throw std::system_error(errno, std::generic_category(), "sched_setaffinity");
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
