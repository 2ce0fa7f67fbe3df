// Lookups in the background: many names at once, the answers as they arrive.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Answer.h"

namespace quorvel::netcm {

struct Progress {
    size_t done;
    size_t all;
};

// Resolves the names over the profile's connection, as many at a time as the library takes. Every name gets
// one answer, on the calling thread. `go_on` is asked between answers; when it says no, what is under way is
// left.
void look_up_in_background(int32_t profile, const std::vector<std::string>& names,
                           const std::function<void(const Answer&, Progress)>& answered,
                           const std::function<bool()>& go_on);

}  // namespace quorvel::netcm
