// The lives of the clients in a record: what each asked, and what it was told.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "record/reader.h"

namespace quorvel::cm {

struct Step {
    PassingKind kind = PassingKind::kRequest;
    int64_t time = 0;
    uint32_t code = 0;
    std::vector<std::byte> bytes;
    std::vector<std::byte> comparable;  // of a request: without what differs from run to run
};

struct Life {
    uint32_t client = 0;
    int64_t process = 0;
    int32_t application = 0;
    // Registered before the record begins, as far as it goes.
    bool begins_in_the_middle = true;
    int64_t begin = 0;
    std::vector<Step> steps;  // without its registrations
    std::vector<std::byte> registration_answer;

    std::string name() const { return "client " + std::to_string(client); }
};

// A call that was there before the record.
struct EarlierCall {
    uint32_t call = 0;
    int32_t profile = 0;
    std::string address;
    std::string interface;
};

struct Lives {
    std::vector<Life> all;
    std::vector<EarlierCall> earlier_calls;
    bool with_secrets = true;
    uint64_t lost = 0;
};

// Of the clients, or of this one alone. Throws RecordError.
Lives lives_of(const Record& record, uint32_t client);

// What a request is compared by.
std::vector<std::byte> comparable(const Request& request, bool with_secrets);
// "NETCM_CLIENT_START_REQ {"profile":1}"
std::string words_of(const Request& request);
std::string words_of(const Step& step);

Request request_in(std::span<const std::byte> bytes);

}  // namespace quorvel::cm
