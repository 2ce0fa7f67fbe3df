// A file of the operator's commands with times.
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace quorvel::cm {

struct ScenarioStep {
    std::chrono::milliseconds at{0};
    nlohmann::json command;
};

// The steps of a file. Throws AskError for a file that makes no sense.
std::vector<ScenarioStep> read_steps(const std::string& path);

// Runs the steps of a TOML file ([[step]] with `at`, `command` and its arguments) against the
// server, and prints each. Throws AskError at the first step that is refused, and for a file that makes no
// sense.
void run_scenario(const std::string& socket, const std::string& path);

}  // namespace quorvel::cm
