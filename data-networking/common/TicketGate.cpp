#include "common/TicketGate.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace quorvel {
namespace {

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));

void wait_while(std::atomic<uint32_t>& word, uint32_t value) {
    syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value, nullptr, nullptr, 0);
}

void wake_all(std::atomic<uint32_t>& word) {
    syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

}  // namespace

void TicketGate::enter() {
    const uint32_t ticket = next_.fetch_add(1);
    if (serving_.load() == ticket)
        return;
    const int error = errno;
    std::atomic<uint32_t>& calls = calls_[ticket % kPlaces];
    for (;;) {
        const uint32_t seen = calls.load();
        if (serving_.load() == ticket)
            break;
        wait_while(calls, seen);
    }
    errno = error;
}

void TicketGate::leave() {
    const uint32_t ticket = serving_.load(std::memory_order_relaxed) + 1;
    serving_.store(ticket);
    // Whoever takes this ticket from now on sees that it is served.
    if (next_.load() == ticket)
        return;
    const int error = errno;
    std::atomic<uint32_t>& calls = calls_[ticket % kPlaces];
    calls.fetch_add(1);
    wake_all(calls);
    errno = error;
}

}  // namespace quorvel
