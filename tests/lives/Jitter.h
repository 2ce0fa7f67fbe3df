// Where threads may lose the processor: every trace of the library is such a place, with and without its
// locks.
#pragma once

#include <cstdint>

namespace quorvel::lives {

// How the next life is disturbed: now and then a yield, and more rarely a short sleep. 0: not at all.
void disturb(uint64_t seed);

}  // namespace quorvel::lives
