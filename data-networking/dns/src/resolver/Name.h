// A name of a message as text.
#pragma once

#include "dns/src/resolver/Resolver.h"

namespace quorvel {

// The records of an answer mostly have one owner, given as pointers to one place, where the question or the
// alias before them has often been read already: what a pointer leads to is not read again when it is what
// was read last. An object serves one message.
class Name {
  public:
    Name() {}  // leaves the text as it is: no name, no text

    // Gives the bytes that the name at `offset` occupies there, or -1.
    int read(std::span<const uint8_t> message, int offset);

    // The name read last, as far as it could be read.
    const char* text() const { return text_.data(); }

  private:
    NameText text_;
    int source_ = -1;  // where the text begins in the message; -1 unless it could be read to its end
};

}  // namespace quorvel
