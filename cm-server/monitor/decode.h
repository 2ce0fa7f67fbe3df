// Requests, answers and events by their names and fields.
#pragma once

#include <nlohmann/json.hpp>
#include <span>
#include <string>

#include "protocol/message.h"
#include "protocol/request.h"

namespace quorvel::cm {

// {"name": "NETCM_CLIENT_START_REQ", "fields": {"profile": 1}}. Secrets of profiles are masked.
nlohmann::json decode(const Request& request);
nlohmann::json decode(const Message& message, bool event);

std::string to_hex(std::span<const std::byte> bytes);

}  // namespace quorvel::cm
