// Measuring several things in turn, so that all of them see the same weather.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorvel::bench {

// Where this process and the children that it starts from now on run.
enum class Cpus {
    One,   // across CPUs the wake-ups of a virtual machine decide over what a call costs
    Every  // as an application runs: the system chooses the CPUs, and nothing has real-time priority
};
void run_on(Cpus cpus);

int64_t now_ns();

double median(std::vector<double> values);

// Ends the benchmark with an error that names what could not be done.
inline void must(bool done, const char* what) {
    if (!done)
        throw std::runtime_error(what);
}

// One of the things that are compared.
struct Contestant {
    std::string name;
    // Does the work `times` times and returns what it took, in nanoseconds.
    std::function<int64_t(int times)> run;
};

// The time of one piece of work, in nanoseconds, of every round.
using Rounds = std::vector<double>;

// Each contestant once per round, round after round; results in the order of the contestants.
std::vector<Rounds> interleave(const std::vector<Contestant>& contestants, int rounds, int times);

// The median over the rounds of one contestant's time by another's in the same round.
double ratio(const Rounds& ours, const Rounds& anchor);

// Time of a loop of `times` calls.
template <class Work>
int64_t time_of(int times, Work work) {
    const int64_t start = now_ns();
    for (int i = 0; i < times; ++i)
        work();
    return now_ns() - start;
}

}  // namespace quorvel::bench
