// What the kernel says about this process.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace quorvel::test {

// Descriptor number and what it refers to ("socket:[1234]", a path), as /proc/self/fd shows them.
using Descriptors = std::map<int, std::string>;
Descriptors open_descriptors();

// Kernel thread ids of this process.
std::set<int32_t> threads();

// Whether a thread of this process sleeps in the kernel.
bool sleeps(int32_t tid);

}  // namespace quorvel::test
