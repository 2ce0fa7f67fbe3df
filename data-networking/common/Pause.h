// Pauses that a signal does not cut short.
#pragma once

#include <unistd.h>

namespace quorvel {

inline void pause_for(unsigned seconds) {
    for (unsigned left = seconds; left > 0;)
        left = sleep(left);
}

}  // namespace quorvel
