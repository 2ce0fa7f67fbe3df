// The clock that limits of waiting are measured by: no correction of the date moves it.
#pragma once

#include <cstdint>
#include <ctime>

namespace quorvel {

inline int64_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

// When a wait is over.
class Deadline {
  public:
    static constexpr Deadline over() { return Deadline(0); }
    static Deadline in(int32_t milliseconds) { return Deadline(now_ms() + milliseconds); }

    // 0 when it is over.
    int32_t left_ms() const {
        const int64_t left = at_ - now_ms();
        return left > 0 ? static_cast<int32_t>(left) : 0;
    }

  private:
    explicit constexpr Deadline(int64_t at) : at_(at) {}

    int64_t at_;
};

}  // namespace quorvel
