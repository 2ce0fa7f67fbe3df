// Another user on the same machine.
#pragma once

#include <sys/types.h>

#include <functional>

namespace quorvel::test {

inline constexpr uid_t kStranger = 65534;

// What a process of that user makes of it: 0 for true, 1 for false or an exception, or 2 where this process
// cannot start one of another user.
int as_stranger(const std::function<bool()>& act);

}  // namespace quorvel::test
