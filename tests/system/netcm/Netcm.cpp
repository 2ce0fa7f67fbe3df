#include "Netcm.h"

#include <gtest/gtest.h>

#include <sstream>

namespace quorvel::test {
namespace {

std::string out_of_success(Words arguments) {
    arguments.push_back("--json");
    const Ended ended = netcm(arguments);
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.err, "");
    return ended.out;
}

}  // namespace

Words netcm_command(const Words& arguments) {
    return Words{NETCM_PATH} + arguments;
}

Ended netcm(const Words& arguments) {
    return run(netcm_command(arguments));
}

nlohmann::json netcm_json(Words arguments) {
    return nlohmann::json::parse(out_of_success(std::move(arguments)));
}

std::vector<nlohmann::json> netcm_json_lines(Words arguments) {
    return json_lines(out_of_success(std::move(arguments)));
}

std::vector<nlohmann::json> json_lines(const std::string& text) {
    std::vector<nlohmann::json> documents;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        documents.push_back(nlohmann::json::parse(line));
    }
    return documents;
}

}  // namespace quorvel::test
