// A record that has been taken home: what passed, in order, from all of its files.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "record/passing.h"
#include "record/plan.h"

namespace quorvel::cm {

struct RecordEntry {
    Kept kept;
    nlohmann::json note = nlohmann::json::object();  // of a note; else empty
    // Which of several servers it was, counted from 0: each counts its clients anew.
    uint32_t server = 0;

    bool is_note(const std::string& kind) const;
};

struct Record {
    std::vector<std::string> files;                   // oldest first
    nlohmann::json begin = nlohmann::json::object();  // what it says of itself; empty for a record without
    // Among them a note "lost" wherever something is missing, whoever has noticed.
    std::vector<RecordEntry> entries;

    bool has_secrets() const { return begin.value("secrets", "kept") == "kept"; }
    uint64_t lost() const;
};

// The record whose newest file this is: the ones before are beside it. JSON lines and pcapng are told apart
// by what is in the file. Throws RecordError.
Record read_record(const std::string& path);

// What passed, with its name and fields, as an object; a note as it is.
nlohmann::json described(const RecordEntry& entry);

}  // namespace quorvel::cm
