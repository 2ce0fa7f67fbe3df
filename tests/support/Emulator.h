// Tests that are run for another machine than this one.
#pragma once

#include <cstdlib>

namespace quorvel::test {

// An emulator does not show everything that its machine's own system would. The launcher of the tests says
// so.
inline bool is_emulated() {
    return getenv("QUORVEL_EMULATED") != nullptr;
}

}  // namespace quorvel::test
