// The n-th failure: every scenario is run again and again, and in run n the n-th call of a kind that the
// library makes fails, until the scenario is not touched any more. Behind each run everything is as it was
// before, and the scenario succeeds in the same process.
//
//   QUORVEL_SWEEP=long      also pairs: the n-th and the m-th call of the short scenarios
//   QUORVEL_SWEEP_KIND=K    this kind alone, by its name below
//   QUORVEL_SWEEP_FROM=N    from the n-th call on
#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "Run.h"
#include "lives/Remains.h"
#include "quorvel/NetDNS.h"
#include "support/Events.h"
#include "support/LibraryFaults.h"
#include "support/TraceCapture.h"

namespace quorvel::sweep {
namespace {

namespace calls = test::calls;
using test::Call;
using Hurt = sweep::Run::Hurt;

struct Kind {
    const char* name;
    Call call;
    int error;
    Hurt hurt = Hurt::ButBlocksCome;
};

constexpr Kind kKinds[] = {
    {"memory", Call::Malloc, ENOMEM},
    {"text", Call::Format, ENOMEM},
    {"socket", Call::Socket, EMFILE},
    {"pipe", Call::Pipe, EMFILE},
    {"fcntl", Call::Fcntl, EMFILE},
    {"thread", Call::ThreadCreate, EAGAIN},
    {"connect", Call::Connect, ECONNREFUSED},
    {"read", Call::Read, EIO, Hurt::AlsoBlocks},
    {"write", Call::Write, EPIPE},
    {"send", Call::Send, EPIPE},
    {"send_interrupted", Call::Send, EINTR},
    {"receive", Call::Receive, EIO},
    {"receive_refused", Call::Receive, ECONNREFUSED},
    {"poll_interrupted", Call::Poll, EINTR, Hurt::AlsoBlocks},
    {"poll_memory", Call::Poll, ENOMEM, Hurt::AlsoBlocks},
    {"select_interrupted", Call::Select, EINTR},
    {"select_memory", Call::Select, ENOMEM},
};

// No scenario makes so many calls of a kind: a sweep that gets there does not end by itself.
constexpr size_t kFarTooMany = 5000;

bool is_asked_for(const char* variable, const char* value) {
    const char* text = std::getenv(variable);
    return text != nullptr && strcmp(text, value) == 0;
}

bool is_left_out(const Kind& kind) {
    return std::getenv("QUORVEL_SWEEP_KIND") != nullptr && !is_asked_for("QUORVEL_SWEEP_KIND", kind.name);
}

size_t first_call() {
    const char* text = std::getenv("QUORVEL_SWEEP_FROM");
    return text != nullptr ? std::strtoul(text, nullptr, 10) : 1;
}

// A run that hangs is said before the process ends.
constexpr unsigned kPatienceSeconds = 50;
char run_now[100];

void say_and_end(int) {
    if (write(STDOUT_FILENO, run_now, strlen(run_now)) < 0)
        _exit(2);
    _exit(1);
}

class LibrarySweep : public ::testing::TestWithParam<Scenario> {
  protected:
    LibrarySweep() {
        test::trace::stop_keeping();
        // What the library keeps for the whole process is there before the first failure.
        NetDNSGetHostByName(1, "localhost");
        sweep::Run first(Hurt::No);
        first.enter();
        first.leave();
        signal(SIGALRM, say_and_end);
    }
    ~LibrarySweep() override { alarm(0); }

    // The first call of the kind that fails, and another one: 0 for none. How many have failed.
    size_t run_with(const Kind& kind, size_t first, size_t second) {
        snprintf(run_now, sizeof run_now, "hangs: %s %zu %zu\n", kind.name, first, second);
        alarm(kPatienceSeconds);
        const lives::Remains remains;
        if (first != 0)
            calls::fail(kind.call, first, kind.error);
        if (second != 0)
            calls::fail_also(kind.call, second);
        size_t failures = 0;
        std::string objections;
        {
            sweep::Run run(first == 0 ? Hurt::No : kind.hurt);
            GetParam().live(run);
            failures = calls::failures(kind.call);
            calls::reset();
            calls::skip_sleeps();
            run.end();
            objections = run.objections();
        }
        objections += remains.find();
        EXPECT_EQ(objections, "") << kind.name << " " << first << " " << second << " (" << failures
                                  << " failed)";
        ++runs_;
        return failures;
    }

    void sweep(const Kind& kind) {
        for (size_t n = first_call(); n < kFarTooMany; ++n) {
            const size_t failures = run_with(kind, n, 0);
            run_with(kind, 0, 0);
            if (failures == 0 || HasFailure())
                return;
        }
        FAIL() << kind.name << ": " << kFarTooMany << " calls";
    }

    void sweep_pairs(const Kind& kind) {
        for (size_t n = 1; n < kFarTooMany; ++n) {
            for (size_t m = n + 1; m < kFarTooMany; ++m) {
                const size_t failures = run_with(kind, n, m);
                run_with(kind, 0, 0);
                if (failures == 0 || HasFailure())
                    return;
                if (failures == 1)
                    break;
            }
        }
    }

    size_t runs_ = 0;
};

TEST_P(LibrarySweep, survives_the_failure_of_any_call) {
    run_with(kKinds[0], 0, 0);
    for (const Kind& kind : kKinds)
        if (!is_left_out(kind) && !(GetParam().may_keep_ids && kind.call == Call::Malloc))
            sweep(kind);
    std::cout << runs_ << " runs\n";
}

TEST_P(LibrarySweep, survives_two_failures) {
    if (!GetParam().is_short || !is_asked_for("QUORVEL_SWEEP", "long"))
        GTEST_SKIP() << "pairs are gone through with QUORVEL_SWEEP=long";
    for (const Kind& kind : kKinds)
        if (!is_left_out(kind))
            sweep_pairs(kind);
    std::cout << runs_ << " runs\n";
}

INSTANTIATE_TEST_SUITE_P(Scenarios, LibrarySweep, ::testing::ValuesIn(scenarios()),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace quorvel::sweep
