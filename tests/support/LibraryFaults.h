// What a sweep asks of the stand-ins for the C library, beside LibraryCalls.h: two failures in one run, and
// what the library has of the heap.
#pragma once

#include "support/LibraryCalls.h"

namespace quorvel::test::calls {

// Lets one call more fail, the nth from now on, in the same way as the last order of fail().
void fail_also(Call call, size_t nth);
// How many calls have failed since the last order of fail().
size_t failures(Call call);

// Blocks that the library has allocated and not freed, of everything that the process has done so far. The
// sanitizers have a free of their own, and the address sanitizer looks for what is left in its own way: with
// them, nothing is counted.
long blocks_of_library();

}  // namespace quorvel::test::calls
