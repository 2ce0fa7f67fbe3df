// What the operator reads: aligned text of the server's answers.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace quorvel::cm {

// Columns as wide as their widest cell; the first row is the heading.
std::string table(const std::vector<std::vector<std::string>>& rows);

// The answer to "list".
std::string clients_and_calls(const nlohmann::json& data);

}  // namespace quorvel::cm
