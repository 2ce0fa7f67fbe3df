// The application mutex, as the compiler knows it.
#pragma once

#include "common/ThreadSafety.h"

namespace quorvel {

// NetCMAppMutex is a plain pthread mutex, because it is exported; this stands for it where the compiler
// checks locks.
class QV_CAPABILITY("NetCMAppMutex") AppMutexCapability {};
inline constexpr AppMutexCapability app_mutex;

}  // namespace quorvel
