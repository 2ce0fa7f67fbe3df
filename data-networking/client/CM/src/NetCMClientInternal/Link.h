// What other modules need of the server link.
#pragma once

#include "common/AppMutex.h"

namespace quorvel {

// Starts the receiver thread on the async socket, and makes its control pipe where there is none. Returns 0
// or the error number.
int start_receiver(int async_fd) QV_REQUIRES(app_mutex);

// After a failed try nothing of it is left: its descriptors are closed, and their numbers may be the
// application's by now.
void forget_failed_link() QV_REQUIRES(app_mutex);

}  // namespace quorvel
