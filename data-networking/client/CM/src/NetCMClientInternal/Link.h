// The server link and what belongs to it: two sockets, the control pipe, the receiver.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/AppMutex.h"

namespace quorvel {

// Starts the receiver thread on the async socket, and makes its control pipe where there is none. Returns 0
// or the error number.
int start_receiver(int async_fd) QV_REQUIRES(app_mutex);

// After a failed try nothing of it is left: its descriptors are closed, and their numbers may be the
// application's by now.
void forget_failed_link() QV_REQUIRES(app_mutex);

// The link cannot be used any more although the server may still be there: its sockets are shut down, and the
// receiver ends it as when the server has gone.
void lose_link() QV_REQUIRES(app_mutex);

// Makes the sync socket ready for a request: what earlier ones have left is dropped. False when a signal has
// interrupted that. A link that is lost has ended afterwards, unless its users are told for longer than a
// second.
bool settle_link() QV_REQUIRES(app_mutex);

// Writes a request, behind what earlier ones have left. Returns the bytes written, or -1 with errno set. A
// server that has got a part of it waits for the rest: the link is lost then.
int64_t write_request(int fd, const void* buf, size_t len) QV_REQUIRES(app_mutex);

// Waits until the users of a link that was lost have been told, a second at most: a callback that is in the
// way may itself wait for the caller.
void wait_for_farewells() QV_REQUIRES(app_mutex);

// In the only thread of a forked process: the link is the parent's, and its descriptors are closed here.
void link_in_child();

}  // namespace quorvel
