// The process's link to the server.
#pragma once

#include "quorvel/NetCM.h"

namespace quorvel::test {

// Whether the receiver has ended on a reset of the link. It says so without the mutex.
inline bool link_is_broken() {
    return __atomic_load_n(&g_NetCMClientAppInfo.RecvThreadId, __ATOMIC_ACQUIRE) ==
           static_cast<pthread_t>(-1);
}

}  // namespace quorvel::test
