// Status words of the server that the library hands on without a name of its own.
#pragma once

#include <cstdint>

namespace quorvel::cm {

// The network has refused or ended it; the reason is in the record's word 5.
inline constexpr uint32_t kStatusTransport = 21;
// Another client has killed the connection.
inline constexpr uint32_t kStatusKilled = 22;

}  // namespace quorvel::cm
