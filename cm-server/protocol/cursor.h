// The one way to read received bytes: nothing is read past the end.
#pragma once

#include <cstddef>
#include <cstring>
#include <span>
#include <type_traits>

namespace quorvel::cm {

class Cursor {
  public:
    explicit Cursor(std::span<const std::byte> bytes) : rest_(bytes) {}

    size_t remaining() const { return rest_.size(); }

    // The next record, or false when there are too few bytes for it; then nothing is consumed.
    template <class T>
    [[nodiscard]] bool read(T& record) {
        static_assert(std::is_trivially_copyable_v<T>);
        if (rest_.size() < sizeof(T))
            return false;
        std::memcpy(&record, rest_.data(), sizeof(T));
        rest_ = rest_.subspan(sizeof(T));
        return true;
    }

    // The next `size` bytes; `size` is at most remaining().
    std::span<const std::byte> take(size_t size) {
        const auto taken = rest_.first(size);
        rest_ = rest_.subspan(size);
        return taken;
    }

  private:
    std::span<const std::byte> rest_;
};

}  // namespace quorvel::cm
