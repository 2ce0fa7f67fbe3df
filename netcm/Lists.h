// What is connected at the CM server, as JSON lists. "Nothing" is an empty list, any other trouble a Failure.
#pragma once

#include <cstdint>

#include "Json.h"

namespace quorvel::netcm {

Json active_ids();
Json active_names();
// Objects with "interface", "profile_id" and "apn", and with what the CM server of this package tells beside
// them: "device", "address", "state", "users" and "call_id".
Json active_connections(uint32_t interface);

}  // namespace quorvel::netcm
