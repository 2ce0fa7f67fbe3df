// What other modules need of the server link.
#pragma once

#include "common/AppMutex.h"

namespace quorvel {

// Starts the receiver thread on the async socket and makes its control pipe where there is none yet. Returns
// 0 or the error number of the thread creation. A pipe that cannot be had is -1.
int start_receiver(int async_fd) QV_REQUIRES(app_mutex);

// Closes a descriptor of the link, once: it reads as "none" from then on.
void close_descriptor(int& fd);
void close_control_pipe();

// After a failed try nothing of it is left: its descriptors are closed, and their numbers may be the
// application's by now.
void forget_failed_link() QV_REQUIRES(app_mutex);

}  // namespace quorvel
