// The server's answers carry tickets: numbers that are given once. Whoever brings one back shows which answer
// it got.
#pragma once

#include <cstdint>
#include <vector>

namespace quorvel::lives {

// What a ticket was given for: a command, the part of it that says what was asked, and whether the answer was
// a refusal.
struct Asked {
    uint32_t command;
    uint32_t detail = 0;
    bool refused = false;

    bool operator==(const Asked&) const = default;
};

class Ledger {
  public:
    // Smaller than every ticket is every status of the library.
    explicit Ledger(uint32_t first) : first_(first) {}

    uint32_t give(const Asked& asked, uint64_t now);
    // Whether it was given for this, after `since`, and is brought back for the first time.
    bool take(uint32_t ticket, const Asked& asked, uint64_t since);
    // Whether one was given for this after `since`.
    bool was_given(const Asked& asked, uint64_t since) const;
    bool is_ticket(uint32_t number) const { return number >= first_ && number - first_ < given_.size(); }
    // For answers that have room for the lower half alone: the last ticket with this one.
    uint32_t with_lower_half(uint16_t half) const;

  private:
    struct Given {
        Asked asked;
        uint64_t when;
        bool back;
    };

    uint32_t first_;
    std::vector<Given> given_;
};

}  // namespace quorvel::lives
