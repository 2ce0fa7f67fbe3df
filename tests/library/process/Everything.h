// Every public operation that asks the server, with good arguments.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "quorvel/NetCM.h"

namespace quorvel::test {

using Results = std::vector<std::pair<std::string, uint32_t>>;
Results results_of_everything();

}  // namespace quorvel::test
