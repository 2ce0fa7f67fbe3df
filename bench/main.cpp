// quorvel-bench [start] [exchange] [push] [threads] [names] [background]: measures, prints a table, and fails
// when a bar is missed. Without arguments it measures everything. script/bench builds it and runs it where it
// disturbs nobody.
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "Benchmarks.h"
#include "Measure.h"
#include "Server.h"

namespace quorvel::bench {
namespace {

// A process that is registered has a receiver thread, as every process has that has a connection: what is
// locked there is locked against somebody.
struct Benchmark {
    const char* name;
    bool registered;
    Cpus cpus;
    void (*measure)(Report& report);
};

constexpr Benchmark kBenchmarks[] = {
    {"start", false, Cpus::One, measure_start},
    {"exchange", true, Cpus::One, measure_exchange},
    {"push", true, Cpus::One, measure_push},
    {"threads", true, Cpus::Every, measure_threads},
    {"threads", true, Cpus::One, measure_threads_on_one_cpu},
    {"names", true, Cpus::One, measure_names},
    {"background", false, Cpus::One, measure_background},
};

bool is_known(const char* name) {
    for (const Benchmark& benchmark : kBenchmarks)
        if (strcmp(name, benchmark.name) == 0)
            return true;
    return false;
}

bool is_wanted(const Benchmark& benchmark, int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        if (strcmp(argv[i], benchmark.name) == 0)
            return true;
    return argc == 1;
}

void measure(const Benchmark& benchmark, Report& report) {
    run_on(benchmark.cpus);
    const Server server;
    if (benchmark.registered && NetCMClientRegister(on_event) != NETCM_SUCCESS)
        throw std::runtime_error("the server does not register this process");
    benchmark.measure(report);
    if (benchmark.registered)
        NetCMClientDeRegister();
}

int run(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (!is_known(argv[i])) {
            fprintf(stderr, "quorvel-bench: no benchmark is called %s\n", argv[i]);
            return 2;
        }
    }
    Report report;
    for (const Benchmark& benchmark : kBenchmarks)
        if (is_wanted(benchmark, argc, argv))
            measure(benchmark, report);
    report.print();
    return report.every_bar_is_met() ? 0 : 1;
}

}  // namespace
}  // namespace quorvel::bench

int main(int argc, char** argv) {
    try {
        return quorvel::bench::run(argc, argv);
    } catch (const std::exception& failure) {
        fprintf(stderr, "quorvel-bench: %s\n", failure.what());
        return 2;
    }
}
