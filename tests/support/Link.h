// The process's link to the server.
#pragma once

#include "quorvel/NetCM.h"

namespace quorvel::test {

inline const pthread_t kNoReceiver = static_cast<pthread_t>(-1);

// Whether the receiver has ended on a reset of the link. It says so without the mutex.
inline bool link_is_broken() {
    return __atomic_load_n(&g_NetCMClientAppInfo.RecvThreadId, __ATOMIC_ACQUIRE) == kNoReceiver;
}

}  // namespace quorvel::test
