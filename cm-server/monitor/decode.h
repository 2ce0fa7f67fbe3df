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

// Whether an answer or event of this code tells something about a call.
bool is_about_call(uint32_t code);

// What the server tells of something that passes, which has its bytes alone, with its name and fields.
nlohmann::json decoded(const nlohmann::json& passing);

// As one line of text, which what a client has sent always gives: bytes that are no UTF-8 are replaced.
std::string to_line(const nlohmann::json& value);

std::string to_hex(std::span<const std::byte> bytes);

}  // namespace quorvel::cm
