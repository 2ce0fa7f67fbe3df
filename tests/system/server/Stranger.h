// Another user on the same machine.
#pragma once

#include <sys/types.h>

#include <functional>

namespace quorvel::test {

inline constexpr uid_t kStranger = 65534;

// What a process of that user makes of it: 0 for true, 1 for false or an exception, or 2 where this process
// cannot start one of another user. What is done here meanwhile has no thread of its own: a process that is
// forked beside one may wait for ever for what that thread held.
int as_stranger(
    const std::function<bool()>& act, const std::function<void()>& meanwhile = [] {});

}  // namespace quorvel::test
