#include "Ledger.h"

#include <algorithm>

namespace quorvel::lives {

uint32_t Ledger::give(const Asked& asked, uint64_t now) {
    given_.push_back({asked, now, false});
    return first_ + static_cast<uint32_t>(given_.size()) - 1;
}

bool Ledger::take(uint32_t ticket, const Asked& asked, uint64_t since) {
    if (!is_ticket(ticket))
        return false;
    Given& given = given_[ticket - first_];
    if (given.asked != asked || given.when <= since || given.back)
        return false;
    given.back = true;
    return true;
}

bool Ledger::was_given(const Asked& asked, uint64_t since) const {
    return std::any_of(given_.rbegin(), given_.rend(),
                       [&](const Given& given) { return given.when > since && given.asked == asked; });
}

uint32_t Ledger::with_lower_half(uint16_t half) const {
    for (size_t number = given_.size(); number-- > 0;)
        if (static_cast<uint16_t>(first_ + number) == half)
            return first_ + static_cast<uint32_t>(number);
    return 0;
}

}  // namespace quorvel::lives
