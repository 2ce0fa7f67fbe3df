#include "common/Lock.h"

#include "common/Futex.h"

namespace quorvel {

// Whoever has slept takes the lock as awaited: others may sleep still.
void Mutex::wait() {
    while (state_.exchange(kAwaited, std::memory_order_acquire) != kFree)
        wait_while(state_, kAwaited);
}

void Mutex::wake() {
    wake_one(state_);
}

}  // namespace quorvel
