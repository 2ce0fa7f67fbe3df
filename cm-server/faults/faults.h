// Trouble on demand: what is sent may come late, wrong, in part or not at all.
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "protocol/message.h"

namespace quorvel::cm {

struct Fault {
    enum class Kind { kLate, kCode, kStatus, kHalf, kCount, kLength, kSilent };
    Kind kind = Kind::kLate;
    uint32_t value = 0;             // milliseconds, code, status, count or length
    uint32_t client = 0;            // 0: every client
    uint32_t code = 0;              // of the answers and events that it falls on; 0: all
    std::optional<uint32_t> times;  // left; nothing: until it is taken back
};

// What becomes of a message.
struct Delivery {
    Message message;
    std::chrono::milliseconds delay{0};
    bool half = false;
    bool silent = false;

    std::vector<std::byte> bytes() const;
};

class Faults {
  public:
    // Throws std::invalid_argument for a kind that is unknown.
    static Fault::Kind kind_of(const std::string& name);
    static const char* name_of(Fault::Kind kind);

    void add(const Fault& fault) { faults_.push_back(fault); }
    size_t clear();
    // The client has gone, and its id does not come back.
    void forget(uint32_t client);
    const std::vector<Fault>& all() const { return faults_; }

    Delivery apply(uint32_t client, Message message);

  private:
    std::vector<Fault> faults_;
};

}  // namespace quorvel::cm
