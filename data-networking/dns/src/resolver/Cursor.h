// The bounded cursor: the only reader of received bytes. A read that would leave the message is traced and
// moves nothing.
#pragma once

#include <cstdint>
#include <span>

#include "common/Trace.h"
#include "dns/src/resolver/Name.h"

namespace quorvel {

inline uint16_t u16_at(const uint8_t* at) {
    return static_cast<uint16_t>(at[0] << 8 | at[1]);
}

inline uint32_t u32_at(const uint8_t* at) {
    return uint32_t{u16_at(at)} << 16 | u16_at(at + 2);
}

class Cursor {
  public:
    Cursor(std::span<const uint8_t> message, int offset) : message_(message), offset_(offset) {}

    int offset() const { return offset_; }
    const uint8_t* here() const { return message_.data() + offset_; }

    // Whether `count` more bytes have been received. An offset below 0, to which the walk over unreadable
    // questions can lead, has none.
    bool received(int count) const {
        return offset_ >= 0 && offset_ + count <= static_cast<int>(message_.size());
    }

    // The same; traced when they have not.
    bool has(int count) const {
        return received(count) || trace_shortage(offset_ + count, static_cast<int>(message_.size()));
    }

    // Received bytes from here on; only where some are.
    size_t left() const { return message_.size() - static_cast<size_t>(offset_); }

    // Passes bytes that are known to be there.
    void pass(int count) { offset_ += count; }

    bool u8(uint8_t& value) {
        if (!has(1))
            return false;
        value = *here();
        offset_ += 1;
        return true;
    }

    bool skip(int count) {
        if (!has(count))
            return false;
        offset_ += count;
        return true;
    }

    // Passes fields of these sizes that follow one another. Gives the first byte of them; null when one of
    // them has not been received, and the first such is traced.
    template <int... kSizes>
    const uint8_t* fields() {
        constexpr int kTotal = (kSizes + ...);
        if (!received(kTotal)) {
            static_cast<void>((skip(kSizes) && ...));
            return nullptr;
        }
        const uint8_t* first = here();
        offset_ += kTotal;
        return first;
    }

    bool name(Name& out) {
        const int occupied = out.read(message_, offset_);
        if (occupied < 0)
            return false;
        offset_ += occupied;
        return true;
    }

  private:
    [[gnu::cold, gnu::noinline]] static bool trace_shortage(int required, int received) {
        QV_TRACE(4, "rx data %d required, but %d received", required, received);
        return false;
    }

    std::span<const uint8_t> message_;
    int offset_;
};

}  // namespace quorvel
