// The operator's commands: what becomes of calls and clients, and what there is.
#pragma once

#include <nlohmann/json.hpp>

#include "requests/requests.h"

namespace quorvel::cm {

// Throws ControlError, with words that name the call or client that is missing.
nlohmann::json execute_command(Services services, const nlohmann::json& command);

}  // namespace quorvel::cm
