// Sizes with their units: "500kB", "64MB", "16MiB"; a kilobyte has 1024 bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quorvel::command_line {

// In bytes, which are meant without a unit; nothing for what is no size.
std::optional<uint64_t> bytes_from(const std::string& text);

}  // namespace quorvel::command_line
