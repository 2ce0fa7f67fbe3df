// Bytes as hexadecimal digits.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace quorvel::netcm {

std::string hex_text(std::span<const uint8_t> bytes);

// Blanks and colons between the bytes are as one copies them from elsewhere. Nothing when the text holds
// anything else, or half a byte.
std::optional<std::vector<uint8_t>> from_hex(std::string text);

}  // namespace quorvel::netcm
