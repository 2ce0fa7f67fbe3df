// netcm as the tests run it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/CmServer.h"
#include "support/Program.h"

namespace quorvel::test {

std::vector<std::string> netcm_command(const std::vector<std::string>& arguments);

// Runs it to its end.
Ended netcm(const std::vector<std::string>& arguments);

// Runs it with --json, expects success, and reads the document; or one document from every line.
nlohmann::json netcm_json(std::vector<std::string> arguments);
std::vector<nlohmann::json> netcm_json_lines(std::vector<std::string> arguments);
std::vector<nlohmann::json> json_lines(const std::string& text);

}  // namespace quorvel::test
