// A gate that lets one thread through at a time, in the order of their coming.
#pragma once

#include <atomic>
#include <cstdint>

namespace quorvel {

// Whoever leaves hands over to the next that waits, so that nobody starves behind a thread that comes back at
// once. Free to pass, it costs two atomic additions and no system call. Leaves errno as it is.
class TicketGate {
  public:
    void enter();
    void leave();

    // Like enter(), unless `give_up` says so while the thread waits: then it is not through, false is
    // returned, and its place is passed over. `give_up` is asked again after each call of look_again().
    bool enter_unless(bool (*give_up)());
    void look_again();

    // As new: for the only thread of a forked process.
    void reset();

  private:
    // Threads that wait, each at the place of its ticket; two that share a place look again when it is
    // called.
    static constexpr uint32_t kPlaces = 64;
    struct Place {
        std::atomic<uint32_t> calls{0};
        // The mark of the ticket that will not be used, or none. One step sets it and one takes it: of two
        // that share the place, one at a time can give up, and nobody takes the other's mark for its own.
        std::atomic<uint32_t> given_up{0};
    };

    static bool never() { return false; }  // not reached: for the compiler
    // Never 0. Two tickets with the same mark are half of all tickets apart.
    static uint32_t mark_of(uint32_t ticket) { return ticket * 2 + 1; }
    Place& place_of(uint32_t ticket) { return places_[ticket % kPlaces]; }
    bool give_up(uint32_t ticket);
    bool is_passed_over(uint32_t ticket);

    std::atomic<uint32_t> next_{0};
    std::atomic<uint32_t> serving_{0};
    std::atomic<uint32_t> undecided_{0};  // threads that may give up
    Place places_[kPlaces] = {};
};

}  // namespace quorvel
