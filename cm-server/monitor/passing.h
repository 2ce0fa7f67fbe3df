// What passes on the wire, as those who watch it read it.
#pragma once

#include <nlohmann/json.hpp>
#include <span>
#include <string>

namespace quorvel::cm {

// The name and fields alone, of bytes that pass in this direction.
nlohmann::json decoded(const std::string& direction, std::span<const std::byte> content);

}  // namespace quorvel::cm
