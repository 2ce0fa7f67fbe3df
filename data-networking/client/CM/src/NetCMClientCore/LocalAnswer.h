// Answers that the library gives itself, on short-lived threads.
#pragma once

#include <pthread.h>

#include "client/CM/src/NetCMPrivate.h"

namespace quorvel {

// Which of the thread's uses a request is about: he may have closed the profile and opened it again
// meanwhile, and the call may have lost its slot to the next connection.
struct UseKey {
    uint32_t serial;
};

// The block of a request, which its thread frees, and what it is about. The block comes first: what is traced
// of it is its address.
struct LocalRequest {
    NetCMStartRspInfo block;
    UseKey use;
};

// Null when there is no memory.
LocalRequest* make_local_request(const NetCMStartRspInfo& block, UseKey use);

// Runs ThreadPostStartEvent or ThreadPostStopEvent for the request's connection on a detached thread. Returns
// 0 or the error number; then the request is freed already. When sure: not before everything is handled that
// may show that the use is one of the next connection.
enum class LocalAnswerKind { Open, OpenWhenSure, Close };
int start_local_thread(LocalAnswerKind kind, LocalRequest* request, pthread_t& thread);

}  // namespace quorvel
