#include "client/CM/src/NetCMClientCore/DroppedBlock.h"

#include <sys/socket.h>

#include <atomic>

#include "client/CM/src/NetCMPrivate.h"
#include "common/Wire.h"

namespace quorvel {
namespace {

// The codes of records lie above this, the counts that blocks begin with below.
constexpr uint32_t kHighestCount = 100;

std::atomic<bool> block_may_follow{false};

bool block_is_next(int async_fd) {
    uint32_t first = 0;
    return recv(async_fd, &first, sizeof first, MSG_PEEK | MSG_DONTWAIT) == sizeof first &&
           first <= kHighestCount;
}

}  // namespace

void expect_dropped_block() {
    block_may_follow.store(true, std::memory_order_relaxed);
}

bool discard_dropped_block(int async_fd) {
    if (!block_may_follow.exchange(false, std::memory_order_relaxed) || !block_is_next(async_fd))
        return false;
    wire::ConnectionBlock block;
    return NetCMReadSocketEx(async_fd, &block, sizeof block) > 0;
}

}  // namespace quorvel
