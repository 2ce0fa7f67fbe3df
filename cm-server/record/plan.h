// What is to be recorded, where, and how much of it.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace quorvel::cm {

// The record cannot be made, or is none; what() says why.
class RecordError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Two files at least, and a message of some size in each.
inline constexpr uint64_t kLeastRecordSize = uint64_t{64} * 1024;

struct RecordPlan {
    std::string file;                            // empty: nothing is recorded. "*.pcapng" decides the format
    uint64_t size = uint64_t{64} * 1024 * 1024;  // of all its files together, in bytes
    bool secrets = false;
    nlohmann::json about = nlohmann::json::object();  // what the record says of itself
};

}  // namespace quorvel::cm
