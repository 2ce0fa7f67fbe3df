// Waiting for something that nobody tells of.
#pragma once

#include <chrono>
#include <thread>

namespace quorvel::test {

// Whether the condition comes true within a time that no sound run needs.
template <class Condition>
bool eventually(Condition condition, std::chrono::milliseconds patience = std::chrono::seconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace quorvel::test
