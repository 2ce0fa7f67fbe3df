// expand_name: a domain name of a message as text.
#include <cstring>

#include "dns/src/resolver/Cursor.h"

namespace quorvel {
namespace {

constexpr uint8_t kPointerBits = 0xC0;

// A name has at most 127 labels: more pointers than that do not belong to one, they run in a circle.
constexpr int kMostPointers = 127;

// Labels, each with a dot behind it; the last dot makes way for the end.
class LabelText {
  public:
    explicit LabelText(NameText* out) : out_(out) {}

    bool append(const uint8_t* label, size_t length) {
        if (out_ == nullptr)
            return true;
        if (length + 1 > out_->size() - used_)
            return false;
        memcpy(out_->data() + used_, label, length);
        used_ += length;
        (*out_)[used_++] = '.';
        return true;
    }

    void end() {
        if (out_ != nullptr)
            (*out_)[used_ == 0 ? 0 : used_ - 1] = '\0';
    }

  private:
    NameText* out_;
    size_t used_ = 0;
};

enum class Step { kLabel, kEnd, kPointer, kUnreadable };

Step read_step(Cursor& at, LabelText& text, int& target) {
    uint8_t length = 0;
    if (!at.u8(length))
        return Step::kUnreadable;
    if (length == 0)
        return Step::kEnd;
    // Either bit makes a pointer, although only both together are defined.
    if ((length & kPointerBits) != 0) {
        uint8_t low = 0;
        target = (length & ~kPointerBits) << 8;
        if (!at.u8(low))
            return Step::kUnreadable;
        target |= low;
        return Step::kPointer;
    }
    if (!at.has(length) || !text.append(at.here(), length))
        return Step::kUnreadable;
    at.skip(length);
    return Step::kLabel;
}

}  // namespace

int expand_name(std::span<const uint8_t> message, int offset, NameText* out) {
    Cursor at(message, offset);
    LabelText text(out);
    int occupied = -1;  // until a pointer has been met, an unreadable name fails
    int pointers = 0;
    int target = 0;
    for (;;) {
        const Step step = read_step(at, text, target);
        if (step == Step::kLabel)
            continue;
        if (step == Step::kEnd && occupied < 0)
            occupied = at.offset() - offset;
        // Where a pointer leads does not decide over the name: the bytes up to the pointer are passed, and
        // the text ends where it can no longer be read.
        if (step != Step::kPointer || ++pointers > kMostPointers)
            break;
        if (occupied < 0)
            occupied = at.offset() - offset;
        at = Cursor(message, target);
    }
    text.end();
    return occupied;
}

}  // namespace quorvel
