// netcm as the tests run it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/CmServer.h"
#include "support/Program.h"

namespace quorvel::test {

// Of a command line.
using Words = std::vector<std::string>;

inline Words operator+(Words words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

Words netcm_command(const Words& arguments);

// Runs it to its end.
Ended netcm(const Words& arguments);

// Runs it with --json, expects success, and reads the document; or one document from every line.
nlohmann::json netcm_json(Words arguments);
std::vector<nlohmann::json> netcm_json_lines(Words arguments);
std::vector<nlohmann::json> json_lines(const std::string& text);

}  // namespace quorvel::test
