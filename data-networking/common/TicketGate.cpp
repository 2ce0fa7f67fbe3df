#include "common/TicketGate.h"

#include "common/Futex.h"

namespace quorvel {
namespace {

constexpr int32_t kSliceMs = 20;

}  // namespace

void TicketGate::enter() {
    static_cast<void>(enter_unless(never));
}

bool TicketGate::enter_unless(bool (*wants_to_give_up)()) {
    const uint32_t ticket = next_.fetch_add(1);
    if (serving_.load() == ticket)
        return true;
    const bool undecided = wants_to_give_up != never;
    if (undecided)
        undecided_.fetch_add(1);
    std::atomic<uint32_t>& calls = place_of(ticket).calls;
    bool through = false;
    for (;;) {
        const uint32_t seen = calls.load();
        through = serving_.load() == ticket;
        if (through)
            break;
        if (!undecided || !wants_to_give_up()) {
            wait_while(calls, seen);
            continue;
        }
        if (give_up(ticket))  // not reached: only between two steps
            break;
        // Another one's mark is in the way, which goes with its turn.
        wait_while(calls, seen, kSliceMs);  // not reached: only between two steps
    }
    if (undecided)
        undecided_.fetch_sub(1);
    return through;
}

// False when its turn has come at this very moment, or when the place is taken by another that has given up.
bool TicketGate::give_up(uint32_t ticket) {
    uint32_t free = 0;
    if (!place_of(ticket).given_up.compare_exchange_strong(free, mark_of(ticket)))
        return false;
    // Either we see that it is our turn, and take the mark back, or whoever leaves sees the mark.
    return serving_.load() != ticket || !is_passed_over(ticket);  // not reached: only between two steps
}

// Takes the mark of a ticket; whoever has taken it decides.
bool TicketGate::is_passed_over(uint32_t ticket) {
    uint32_t mark = mark_of(ticket);
    return place_of(ticket).given_up.compare_exchange_strong(mark, 0);
}

void TicketGate::leave() {
    uint32_t ticket = serving_.load(std::memory_order_relaxed);
    do {
        ++ticket;
        serving_.store(ticket);
        // Whoever takes this ticket from now on sees that it is served.
        if (next_.load() == ticket)
            return;
    } while (is_passed_over(ticket));
    std::atomic<uint32_t>& calls = place_of(ticket).calls;
    calls.fetch_add(1);
    wake_all(calls);
}

void TicketGate::look_again() {
    if (undecided_.load() == 0)
        return;
    for (Place& place : places_) {
        place.calls.fetch_add(1);
        wake_all(place.calls);
    }
}

void TicketGate::reset() {
    next_.store(0);
    serving_.store(0);
    undecided_.store(0);
    for (Place& place : places_)
        place.given_up.store(0);
}

}  // namespace quorvel
