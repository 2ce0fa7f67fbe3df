// What keeps the server going when something fails.
//
// The loop calls back from C, which nothing thrown may pass through; and what fails for one client must not
// end the server for the others.
#pragma once

#include <cstddef>
#include <exception>
#include <new>

namespace quorvel::cm {

// Says in the log what has failed, and why. Memory that was put aside is there to say it with.
void report_failure(const char* what, const char* why) noexcept;

// Puts memory aside that is given up as soon as there is no other: enough to drop a client and to say so.
// Called again, it puts aside anew what has been given up.
void keep_memory_for_trouble() noexcept;

// "out of memory" instead of the name of an exception.
const char* words_of(const std::exception& error) noexcept;

// Does it. False when it has thrown, which is in the log then.
template <class Action>
bool guarded(const char* what, Action&& action) noexcept {
    try {
        action();
        return true;
    } catch (const std::exception& error) {
        report_failure(what, words_of(error));
    } catch (...) {
        report_failure(what, "an unknown failure");
    }
    return false;
}

}  // namespace quorvel::cm
