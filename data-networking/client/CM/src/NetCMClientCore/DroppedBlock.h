// The block behind a record that was dropped.
#pragma once

namespace quorvel {

// A record was dropped that a connection block may follow. The block is thrown away when it comes, so that
// the stream stays in step; nobody waits for it.
void expect_dropped_block();

// Throws away the block at the head of the async socket. False when there is none: the next record follows.
bool discard_dropped_block(int async_fd);

}  // namespace quorvel
