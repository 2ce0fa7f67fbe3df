// The bounded cursor: the only reader of received bytes. A read that would leave the message is traced and
// moves nothing.
#pragma once

#include <cstdint>
#include <span>

#include "common/Trace.h"
#include "dns/src/resolver/Resolver.h"

namespace quorvel {

class Cursor {
  public:
    Cursor(std::span<const uint8_t> message, int offset) : message_(message), offset_(offset) {}

    int offset() const { return offset_; }
    const uint8_t* here() const { return message_.data() + offset_; }

    // Whether `count` more bytes have been received. An offset below 0, to which the walk over unreadable
    // questions can lead, has none.
    bool has(int count) const {
        const int length = static_cast<int>(message_.size());
        if (offset_ >= 0 && offset_ + count <= length) [[likely]]
            return true;
        return trace_shortage(offset_ + count, length);
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

    bool u16(uint16_t& value) {
        if (!has(2))
            return false;
        const uint8_t* at = here();
        value = static_cast<uint16_t>(at[0] << 8 | at[1]);
        offset_ += 2;
        return true;
    }

    bool u32(uint32_t& value) {
        uint16_t high = 0;
        uint16_t low = 0;
        if (!has(4) || !u16(high) || !u16(low))
            return false;
        value = uint32_t{high} << 16 | low;
        return true;
    }

    bool skip(int count) {
        if (!has(count))
            return false;
        offset_ += count;
        return true;
    }

    bool name(NameText& out) {
        const int occupied = expand_name(message_, offset_, &out);
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
