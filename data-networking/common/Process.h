// Which process this is.
#pragma once

#include <atomic>
#include <cstdint>

namespace quorvel {

inline constinit std::atomic<uint32_t> fork_count{0};

// How many forks lie between the first process and this one: whoever finds another number than before has
// been taken along by a fork, and what he was at is no longer counted anywhere.
inline uint32_t forks_behind() {
    return fork_count.load(std::memory_order_relaxed);
}

}  // namespace quorvel
