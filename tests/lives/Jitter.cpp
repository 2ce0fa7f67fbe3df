#include "Jitter.h"

#include <sched.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "Random.h"

namespace quorvel::lives {
namespace {

std::atomic<uint64_t> disturbance{0};
std::atomic<uint64_t> threads{0};

// Without a lock, and without order between threads: the thread sanitizer takes either for the library's.
void lose_time() {
    const uint64_t seed = disturbance.load(std::memory_order_relaxed);
    if (seed == 0)
        return;
    thread_local Random random(seed, threads.fetch_add(1, std::memory_order_relaxed));
    const int what = random.below(2000);
    if (what < 30)
        sched_yield();
    else if (what < 34)
        std::this_thread::sleep_for(std::chrono::microseconds(random.below(150)));
}

}  // namespace

void disturb(uint64_t seed) {
    disturbance.store(seed, std::memory_order_relaxed);
}

}  // namespace quorvel::lives

// The library calls this in place of the platform's.
extern "C" __attribute__((visibility("default"), format(printf, 5, 6))) int _debug_message(int, const char*,
                                                                                           uint32_t, uint32_t,
                                                                                           const char* format,
                                                                                           ...) {
    static const bool echo = getenv("QUORVEL_TEST_TRACE") != nullptr;
    if (echo) {
        va_list values;
        va_start(values, format);
        vdprintf(2, format, values);
        va_end(values);
    }
    quorvel::lives::lose_time();
    return 0;
}
