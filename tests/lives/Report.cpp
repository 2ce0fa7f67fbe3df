#include "Report.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iterator>

// The sanitizers call these, where there are any.
extern "C" {
__attribute__((weak)) void __sanitizer_set_death_callback(void (*callback)());
__attribute__((visibility("default"))) void __tsan_on_report(void* report);
}

namespace quorvel::lives::report {
namespace {

struct Life {
    uint64_t seed;
    Troubles troubles;
    char troubles_text[128];
    char test[64];
};
Life life;
std::atomic<const History*> running{nullptr};
std::atomic<bool> told{false};

void print_how_to_live_it_again() {
    dprintf(
        STDERR_FILENO,
        "The life of seed %llu with the troubles %s. Again, and a hundred times:\n"
        "  QUORVEL_LIVES=1 QUORVEL_LIVES_REPEAT=100 QUORVEL_LIVES_SEED=%llu QUORVEL_LIVES_TROUBLES=%s \\\n"
        "    %s --keep / -- %s --gtest_filter=%s\n",
        static_cast<unsigned long long>(life.seed), life.troubles_text,
        static_cast<unsigned long long>(life.seed), life.troubles_text, QUORVEL_ISOLATE,
        program_invocation_name, life.test);
}

void print_life() {
    const History* history = running.load();
    if (history == nullptr || told.exchange(true))
        return;
    history->print(STDERR_FILENO);
    print_how_to_live_it_again();
}

constexpr int kCrashes[] = {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL};
struct sigaction before[NSIG];

// Whoever had the signal before (a sanitizer, or the kernel's default) has it next.
void on_crash(int number) {
    dprintf(STDERR_FILENO, "signal %d in a life:\n", number);
    print_life();
    sigaction(number, &before[number], nullptr);
    raise(number);
}

}  // namespace

void life_begins(uint64_t seed, Troubles troubles, const History* history) {
    life.seed = seed;
    life.troubles = troubles;
    std::snprintf(life.troubles_text, sizeof life.troubles_text, "%s", to_text(troubles).c_str());
    if (const auto* test = ::testing::UnitTest::GetInstance()->current_test_info())
        std::snprintf(life.test, sizeof life.test, "%s.%s", test->test_suite_name(), test->name());
    running = history;
}

void life_ends() {
    running = nullptr;
}

void fail(const std::string& why) {
    const auto print_objection = [&] { dprintf(STDERR_FILENO, "\nThe model objects: %s\n", why.c_str()); };
    // Before the life and after it: whoever shortens long output keeps one of its ends.
    print_objection();
    print_how_to_live_it_again();
    print_life();
    print_objection();
    _exit(1);
}

void watch_for_crashes() {
    struct sigaction action {};
    action.sa_handler = on_crash;
    // Only once: a crash while the first is printed ends the process.
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_NODEFER;
    for (const int number : kCrashes)
        sigaction(number, &action, &before[number]);
    if (__sanitizer_set_death_callback != nullptr)
        __sanitizer_set_death_callback(print_life);
}

}  // namespace quorvel::lives::report

void __tsan_on_report(void*) {
    quorvel::lives::report::print_how_to_live_it_again();
}
