// The reader of names: a domain name of a message as text.
#include <cstring>

#include "dns/src/resolver/Cursor.h"
#include "dns/src/resolver/Name.h"

namespace quorvel {
namespace {

constexpr uint8_t kPointerBits = 0xC0;

// A name has at most 127 labels: more pointers than that do not belong to one, they run in a circle.
constexpr int kMostPointers = 127;

// Labels, each with a dot behind it; the last dot makes way for the end.
class LabelText {
  public:
    explicit LabelText(NameText& out) : out_(out) {}

    // Takes the label at the cursor, which has been received whole.
    bool append(const Cursor& at, size_t length) {
        const size_t room = out_.size() - used_;
        if (length + 1 > room)
            return false;
        char* to = out_.data() + used_;
        // Nearly every label is short: a copy of fixed size, where both sides have it, costs no call.
        if (length <= kShortLabel && room >= kShortLabel && at.left() >= kShortLabel) [[likely]]
            memcpy(to, at.here(), kShortLabel);
        else
            memcpy(to, at.here(), length);
        to[length] = '.';
        used_ += length + 1;
        return true;
    }

    void end() { out_[used_ == 0 ? 0 : used_ - 1] = '\0'; }

  private:
    static constexpr size_t kShortLabel = 16;

    NameText& out_;
    size_t used_ = 0;
};

// Takes labels up to the end of the name or a pointer. Gives the byte that stopped it, 0 or the pointer's
// first one, which is passed too; -1 where the message or the text ends before.
int take_labels(Cursor& at, LabelText& text) {
    for (;;) {
        uint8_t length = 0;
        if (!at.u8(length))
            return -1;
        // Either bit makes a pointer, although only both together are defined.
        if (length == 0 || (length & kPointerBits) != 0)
            return length;
        if (!at.has(length) || !text.append(at, length))
            return -1;
        at.pass(length);
    }
}

// Where a pointer whose first byte has been passed leads, or -1.
int pointer_target(Cursor& at, int first) {
    uint8_t low = 0;
    return at.u8(low) ? (first & ~kPointerBits) << 8 | low : -1;
}

constexpr int kPointerBytes = 2;

// Where the text of the name at `offset` begins: there, or where a pointer there leads.
int source_of(std::span<const uint8_t> message, int offset) {
    Cursor at(message, offset);
    if (!at.received(kPointerBytes) || (*at.here() & kPointerBits) == 0)
        return offset;
    return u16_at(at.here()) & ~(kPointerBits << 8);
}

struct Expansion {
    int occupied = -1;   // until the end or a pointer has been met, an unreadable name fails
    bool whole = false;  // read to its end, and would be with one more pointer in front
};

Expansion expand(std::span<const uint8_t> message, int offset, NameText& out) {
    Cursor at(message, offset);
    LabelText text(out);
    Expansion name;
    for (int pointers = 0; pointers <= kMostPointers; ++pointers) {
        const int stop = take_labels(at, text);
        const int target = stop > 0 ? pointer_target(at, stop) : -1;
        // Where a pointer leads does not decide over the name: the bytes up to the pointer are passed, and
        // the text ends where it can no longer be read.
        if (name.occupied < 0 && (stop == 0 || target >= 0))
            name.occupied = at.offset() - offset;
        name.whole = stop == 0 && pointers < kMostPointers;
        if (target < 0)
            break;
        at = Cursor(message, target);
    }
    text.end();
    return name;
}

}  // namespace

int Name::read(std::span<const uint8_t> message, int offset) {
    const int source = source_of(message, offset);
    if (source == source_ && source != offset)
        return kPointerBytes;
    const Expansion name = expand(message, offset, text_);
    source_ = name.whole ? source : -1;
    return name.occupied;
}

}  // namespace quorvel
