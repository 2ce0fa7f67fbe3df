// Answers that the library gives itself, on short-lived threads.
#pragma once

#include <pthread.h>

#include "client/CM/src/NetCMPrivate.h"

namespace quorvel {

// Runs `entry` with the block on a detached thread, which frees it. Returns 0 or the error number; then the
// block is freed already.
int start_local_thread(void* (*entry)(void*), NetCMStartRspInfo* block, pthread_t& thread);

// A call has ended: threads that are still on their way to answer for it have nothing to say any more.
void overtake_local_answers(int32_t call_index);

}  // namespace quorvel
