// The operator's commands that make the server misbehave.
#pragma once

#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>

#include "clients.h"
#include "faults/faults.h"

namespace quorvel::cm {

struct Trouble {
    Clients& clients;
    Faults& faults;
    std::function<void(std::chrono::milliseconds away)> restart;
};

// Nothing when the command is none of these. Throws ControlError.
std::optional<nlohmann::json> execute_trouble(const Trouble& trouble, const nlohmann::json& command);

}  // namespace quorvel::cm
