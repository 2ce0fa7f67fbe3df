#include "common/TicketGate.h"

#include "common/Futex.h"

namespace quorvel {

void TicketGate::enter() {
    const uint32_t ticket = next_.fetch_add(1);
    if (serving_.load() == ticket)
        return;
    std::atomic<uint32_t>& calls = calls_[ticket % kPlaces];
    for (;;) {
        const uint32_t seen = calls.load();
        if (serving_.load() == ticket)
            break;
        wait_while(calls, seen);
    }
}

void TicketGate::leave() {
    const uint32_t ticket = serving_.load(std::memory_order_relaxed) + 1;
    serving_.store(ticket);
    // Whoever takes this ticket from now on sees that it is served.
    if (next_.load() == ticket)
        return;
    std::atomic<uint32_t>& calls = calls_[ticket % kPlaces];
    calls.fetch_add(1);
    wake_all(calls);
}

}  // namespace quorvel
