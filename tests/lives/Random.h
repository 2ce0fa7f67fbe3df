// Chance, all of it from a life's seed. Every thread of a life has a stream of its own.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorvel::lives {

class Random {
  public:
    explicit Random(uint64_t seed, uint64_t stream = 0) : state_(mixed(seed ^ mixed(stream + 1))) {}

    uint64_t next() {
        state_ += 0x9e3779b97f4a7c15;
        return mixed(state_);
    }
    // 0 to count - 1.
    int below(int count) { return static_cast<int>(next() % static_cast<uint64_t>(count)); }
    int between(int first, int last) { return first + below(last - first + 1); }
    bool one_in(int count) { return below(count) == 0; }

  private:
    static uint64_t mixed(uint64_t value) {
        value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9;
        value = (value ^ (value >> 27)) * 0x94d049bb133111eb;
        return value ^ (value >> 31);
    }

    uint64_t state_;
};

}  // namespace quorvel::lives
