// What a record holds, read line by line.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace quorvel::test {

using nlohmann::json;

std::string content(const std::string& path);

// The lines of the file, every one of which must be an object.
std::vector<json> lines_of(const std::string& path);
// The same of all files of a record, the oldest first.
std::vector<json> lines_of_all(const std::string& path);
size_t files_of(const std::string& path);

// Those that are notes of this kind.
std::vector<json> notes(const std::vector<json>& lines, const std::string& kind);
// Whether something with this name went this way.
bool holds(const std::vector<json>& lines, const std::string& direction, const std::string& name);

// Nothing is missing from `first` to the last, but for what notes say is lost, and nothing is there twice.
// Gives how many are lost.
uint64_t expect_whole(const std::vector<json>& lines, uint64_t first);

unsigned mode_of(const std::string& path);

}  // namespace quorvel::test
