// A configuration for the machine that the program finds itself on.
#pragma once

#include <string>

namespace quorvel::cm {

// The text of a file, with a word on each of its parts.
std::string propose_configuration();

}  // namespace quorvel::cm
