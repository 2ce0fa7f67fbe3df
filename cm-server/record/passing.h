// What passes a server, as those who watch and those who record get it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

#include "record/secrets.h"

namespace quorvel::cm {

enum class PassingKind : uint32_t { kRequest, kAnswer, kEvent, kNote };

// "request", "answer", "event"; "note" for what is told beside them.
const char* to_text(PassingKind kind);

// One of them, on its way: it refers to what somebody else holds.
struct Passing {
    uint64_t number = 0;  // the server counts from 1 on, so that what is missing shows; 0 is not counted
    int64_t time = 0;     // microseconds since 1970
    uint32_t client = 0;
    PassingKind kind = PassingKind::kNote;
    std::span<const std::byte> head;  // of a note: its text, a JSON object
    std::span<const std::byte> rest;
    std::span<const Secret> secrets;

    size_t size() const { return head.size() + rest.size(); }
};

// One of them, kept.
struct Kept {
    uint64_t number = 0;
    int64_t time = 0;
    uint32_t client = 0;
    PassingKind kind = PassingKind::kNote;
    std::vector<std::byte> bytes;
    Secrets secrets;

    Passing passing() const { return {number, time, client, kind, bytes, {}, secrets}; }
};

int64_t microseconds_now();

// A note of the writer's own, that nobody has counted.
Kept make_note(const nlohmann::json& note);

// A line of JSON, as a monitor is told it: with its bytes, and where secrets are among them.
void append_line(std::string& lines, const Passing& passing);
// The same as an object, and back. Throws what the JSON library throws.
Kept kept_of(const nlohmann::json& line);

}  // namespace quorvel::cm
