// What applications may set, kept while the server runs. The server attaches no meaning to the values.
#pragma once

#include <array>
#include <cstdint>
#include <map>

namespace quorvel::cm {

inline constexpr uint32_t kLowestPacketDataState = 1;
inline constexpr uint32_t kHighestPacketDataState = 3;

struct Settings {
    std::array<uint32_t, 5> values{};
    // By profile; a profile that is not here is in the lowest state.
    std::map<int32_t, uint32_t> packet_data_states;
};

}  // namespace quorvel::cm
