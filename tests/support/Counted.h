// The count of what the tests reach.
#pragma once

#include <cstdlib>

namespace quorvel::test {

// Whether processes are to write down what of them has run, which they do at an end in good order.
inline bool is_counted() {
    return std::getenv("QUORVEL_COVERAGE") != nullptr;
}

}  // namespace quorvel::test
