// What follows records, by its fields.
#pragma once

#include <nlohmann/json.hpp>
#include <span>

#include "protocol/message.h"

namespace quorvel::cm {

// The block of a message that is not the profile manager's; an empty object for one that is too short.
nlohmann::json block_json(const Message& message);

// Whether an answer of the profile manager carries a list of profiles, and that list.
bool is_list(uint32_t answer);
nlohmann::json profile_list_json(uint32_t answer, std::span<const std::byte> data);

}  // namespace quorvel::cm
