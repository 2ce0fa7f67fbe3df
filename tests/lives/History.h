// What happened in a life, in the order in which the model learned of it. Guarded by whoever has it.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorvel::lives {

class History {
  public:
    // Who a line is about, beside the users of a life, which are their own numbers.
    static constexpr int kServer = -1;
    static constexpr int kTest = -2;

    History();
    // The number of the line, from 1.
    uint64_t note(int who, const char* format, ...) __attribute__((format(printf, 3, 4)));
    uint64_t last() const { return count_; }
    // To a descriptor, without the heap: also what is left of a process that crashes can be printed.
    void print(int fd) const;

  private:
    static constexpr size_t kLines = 4096;
    struct Line {
        std::chrono::steady_clock::time_point time;
        int who;
        std::array<char, 120> text;
    };

    std::chrono::steady_clock::time_point begin_;
    std::vector<Line> lines_;  // a ring
    uint64_t count_ = 0;
};

}  // namespace quorvel::lives
