#include "support/LeakCheck.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace quorvel::test {
namespace {

constexpr std::chrono::seconds kPatience{5};

// A detached thread has done its last visible act before the kernel forgets it: the wait ends with the
// thread.
bool only_known_threads_are_left(const std::set<int32_t>& known) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
        const std::set<int32_t> now = threads();
        if (std::includes(known.begin(), known.end(), now.begin(), now.end()))
            return true;
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

}  // namespace

std::string leaked(const Descriptors& before, const Descriptors& now) {
    std::string lines;
    for (const auto& [fd, target] : now) {
        const auto known = before.find(fd);
        if (known == before.end() || known->second != target)
            lines += std::to_string(fd) + " -> " + target + "\n";
    }
    return lines;
}

void LeakCheck::OnTestStart(const ::testing::TestInfo&) {
    descriptors_ = open_descriptors();
    threads_ = threads();
}

void LeakCheck::OnTestEnd(const ::testing::TestInfo&) {
    EXPECT_TRUE(only_known_threads_are_left(threads_)) << "the test left a thread behind";
    EXPECT_EQ(leaked(descriptors_, open_descriptors()), "") << "the test left descriptors open";
}

}  // namespace quorvel::test
