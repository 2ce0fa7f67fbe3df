// What the process writes to standard output, through a pipe, whichever run time writes it.
#pragma once

#include <functional>
#include <string>

namespace quorvel::test {

// Runs `body` and returns what was written to descriptor 1 meanwhile (at most what a pipe holds: 64 KiB).
std::string stdout_of(const std::function<void()>& body);

}  // namespace quorvel::test
