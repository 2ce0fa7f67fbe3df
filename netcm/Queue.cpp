#include "Queue.h"

namespace quorvel::netcm {

Deadline in(std::chrono::duration<double> time) {
    using Clock = std::chrono::steady_clock;
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(time);
}

bool has_passed(Deadline deadline) {
    return deadline && std::chrono::steady_clock::now() >= *deadline;
}

}  // namespace quorvel::netcm
