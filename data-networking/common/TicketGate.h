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

  private:
    // Threads that wait, each at the place of its ticket; two that share a place look again when it is
    // called.
    static constexpr uint32_t kPlaces = 64;

    std::atomic<uint32_t> next_{0};
    std::atomic<uint32_t> serving_{0};
    std::atomic<uint32_t> calls_[kPlaces] = {};
};

}  // namespace quorvel
