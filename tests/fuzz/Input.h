// An input that is taken bit by bit, and is all zeros behind its end.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

class Input {
  public:
    Input(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}

    bool empty() const { return at_ == end_; }
    uint8_t byte() { return at_ < end_ ? *at_++ : uint8_t{0}; }
    uint16_t word() {
        const auto high = static_cast<unsigned>(byte()) << 8;
        return static_cast<uint16_t>(high | byte());
    }
    std::vector<uint8_t> bytes(size_t most) {
        const size_t size = std::min(most, static_cast<size_t>(end_ - at_));
        at_ += size;
        return {at_ - size, at_};
    }

  private:
    const uint8_t* at_;
    const uint8_t* end_;
};
