// JSON whose members keep the order in which they were set.
#pragma once

#include <nlohmann/json.hpp>

namespace quorvel::netcm {

using Json = nlohmann::ordered_json;

}  // namespace quorvel::netcm
