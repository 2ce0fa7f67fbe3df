#include "bearer/statistics.h"

namespace quorvel::cm {
namespace {

// The kernel's counters wrap as ours do, so that a difference is right across the wrap.
void add_difference(Counters& sum, const Counters& end, const Counters& start) {
    for (size_t i = 0; i < sum.size(); ++i)
        sum[i] += end[i] - start[i];
}

bool resets(ResetLevel level, size_t counter) {
    const bool bytes = counter < 2;
    const bool packets = counter == 2 || counter == 3;
    switch (level) {
        case ResetLevel::kAll:
            return true;
        case ResetLevel::kBytes:
            return bytes;
        case ResetLevel::kPackets:
            return packets;
        case ResetLevel::kErrors:
            return !bytes && !packets;
        case ResetLevel::kBytesAndPackets:
            return bytes || packets;
    }
    return false;  // not reached: for the compiler
}

}  // namespace

Counters Statistics::now(const std::string& interface) {
    const InterfaceState* state = interfaces_.look_at(interface);
    return state != nullptr ? state->counters : Counters{};
}

void Statistics::enter(const std::string& interface) {
    Use& use = uses_[interface];
    if (use.calls++ == 0)
        use.start = now(interface);
}

void Statistics::leave(const std::string& interface) {
    const auto found = uses_.find(interface);
    if (found == uses_.end() || --found->second.calls > 0)
        return;
    // A removed interface has taken its counters with it.
    if (const InterfaceState* state = interfaces_.look_at(interface))
        add_difference(ended_, state->counters, found->second.start);
    uses_.erase(found);
}

Counters Statistics::read() {
    Counters sum = ended_;
    for (const auto& [interface, use] : uses_)
        if (const InterfaceState* state = interfaces_.look_at(interface))
            add_difference(sum, state->counters, use.start);
    return sum;
}

void Statistics::reset(ResetLevel level) {
    for (auto& [interface, use] : uses_) {
        const Counters current = now(interface);
        for (size_t i = 0; i < current.size(); ++i)
            if (resets(level, i))
                use.start[i] = current[i];
    }
    for (size_t i = 0; i < ended_.size(); ++i)
        if (resets(level, i))
            ended_[i] = 0;
}

}  // namespace quorvel::cm
