// Text from outside in JSON. A network name may hold any bytes, and JSON only UTF-8: text that is none is the
// object {"hex": "436166e9"} in its place, in both directions, so that nothing is lost.
#pragma once

#include <optional>
#include <string>

#include "Json.h"

namespace quorvel::netcm {

Json text_to_json(const std::string& text);

// Nothing when the value is neither a string nor such an object.
std::optional<std::string> text_from_json(const Json& value);

bool is_hex_object(const Json& value);

}  // namespace quorvel::netcm
