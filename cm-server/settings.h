// What applications may set, kept while the server runs. The server attaches no meaning to the values.
#pragma once

#include <array>
#include <cstdint>

namespace quorvel::cm {

struct Settings {
    std::array<uint32_t, 5> values{};
};

}  // namespace quorvel::cm
