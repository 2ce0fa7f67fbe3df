#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include "Benchmarks.h"
#include "Bus.h"
#include "Server.h"

namespace quorvel::bench {
namespace {

constexpr int kRounds = 101;
constexpr int kTimes = 4;
constexpr char kOurs[] = "with quorvel";

struct Program {
    const char* name;
    const char* path;
};
constexpr Program kPrograms[] = {
    {"an empty program", START_EMPTY}, {kOurs, START_QUORVEL},       {"with libdbus", START_LIBDBUS},
    {"with sd-bus", START_SDBUS},      {"with c-ares", START_CARES},
};

void run_to_its_end(const char* path, const char* mode) {
    char* const argv[] = {const_cast<char*>(path), const_cast<char*>(mode), nullptr};
    pid_t pid = 0;
    int status = 0;
    if (posix_spawn(&pid, path, nullptr, nullptr, argv, environ) != 0 || waitpid(pid, &status, 0) != pid ||
        status != 0)
        throw std::runtime_error(std::string(path) + " fails");
}

// A program that is up and waits, with all that it needs mapped.
class Waiting {
  public:
    explicit Waiting(const char* path) {
        int in[2];
        int out[2];
        if (pipe(in) != 0 || pipe(out) != 0)
            throw std::runtime_error("no pipe");
        pid_ = start_helper([&] {
            dup2(in[0], STDIN_FILENO);
            dup2(out[1], STDOUT_FILENO);
            for (const int fd : {in[0], in[1], out[0], out[1]})
                close(fd);
            execl(path, path, "wait", nullptr);
        });
        close(in[0]);
        close(out[1]);
        in_ = in[1];
        char byte = 0;
        const bool up = read(out[0], &byte, 1) == 1;
        close(out[0]);
        if (!up)
            throw std::runtime_error(std::string(path) + " fails");
    }
    ~Waiting() {
        close(in_);
        waitpid(pid_, nullptr, 0);
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

    // Proportional memory, in MB.
    double pss() const {
        FILE* rollup = fopen(("/proc/" + std::to_string(pid_) + "/smaps_rollup").c_str(), "re");
        char line[256];
        long kilobytes = 0;
        while (rollup != nullptr && fgets(line, sizeof line, rollup) != nullptr)
            if (sscanf(line, "Pss: %ld kB", &kilobytes) == 1)
                break;
        if (rollup == nullptr || kilobytes == 0)
            throw std::runtime_error("no memory figures of a process");
        fclose(rollup);
        return static_cast<double>(kilobytes) / 1024;
    }

  private:
    pid_t pid_;
    int in_;
};

void measure_time(Report& report, const char* title, const char* mode) {
    std::vector<Contestant> contestants;
    for (const Program& program : kPrograms)
        contestants.push_back({program.name, [path = program.path, mode](int times) {
                                   return time_of(times, [=] { run_to_its_end(path, mode); });
                               }});
    const std::vector<Rounds> rounds = interleave(contestants, kRounds, kTimes);
    report.begin(title);
    report.add(contestants, rounds, 0, "us", 1000);
}

void measure_memory(Report& report) {
    report.begin("Proportional memory of a program that has been set up, every library counted");
    double empty = 0;
    for (const Program& program : kPrograms) {
        std::vector<double> sizes;
        for (int i = 0; i < 11; ++i)
            sizes.push_back(Waiting(program.path).pss());
        const double size = median(sizes);
        if (empty == 0)
            empty = size;
        report.add(
            {program.name, size, "MB", &program == kPrograms ? "" : "MB more", size - empty, Bar::None, 0});
    }
    report.set_bar(kOurs, Bar::AtMost, 0.2);
}

}  // namespace

void measure_start(Report& report) {
    const BusPair bus(BusPair::Kind::ThroughDaemon);
    measure_time(report, "Start of a program, from its creation to its end", "");
    report.set_bar(kOurs, Bar::AtMost, 1.35);
    measure_time(report, "The same, with what makes it known to its server (c-ares: a channel)", "set-up");
    measure_memory(report);
}

}  // namespace quorvel::bench
