// What is said when a life goes wrong: why, what happened in it, and how to live it again.
#pragma once

#include <cstdint>
#include <string>

#include "History.h"
#include "Troubles.h"

namespace quorvel::lives {

namespace report {

// The life that begins, and what happens in it; null when it is over.
void life_begins(uint64_t seed, Troubles troubles, const History* history);
void life_ends();

// The library has not kept a promise. There is no going on in a process in which it is in an unknown state.
[[noreturn]] void fail(const std::string& why);

// From now on also a crash says which life it was.
void watch_for_crashes();

}  // namespace report
}  // namespace quorvel::lives
