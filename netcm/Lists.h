// What is connected at the CM server, as JSON lists. "Nothing" is an empty list, any other trouble a Failure.
#pragma once

#include <cstdint>

#include "Json.h"

namespace quorvel::netcm {

Json active_ids();
Json active_names();
// Objects with "interface", "profile_id" and "apn".
Json active_connections(uint32_t interface);

}  // namespace quorvel::netcm
