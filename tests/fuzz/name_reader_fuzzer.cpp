// expand_name: the input is a message behind two bytes that say where the name begins.
#include <cstring>
#include <vector>

#include "Fuzz.h"
#include "dns/src/resolver/Resolver.h"

using namespace quorvel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    // A block of its own, so that a sanitizer sees a byte read past the message.
    const std::vector<uint8_t> message(data + 2, data + size);
    const int offset = (data[0] << 8 | data[1]) % (static_cast<int>(message.size()) + 3) - 1;
    NameText text;
    text.fill('\x7f');
    const int occupied = expand_name(message, offset, &text);
    QV_FUZZ_EXPECT(occupied == -1 || (occupied > 0 && offset + occupied <= static_cast<int>(message.size())));
    QV_FUZZ_EXPECT(memchr(text.data(), '\0', text.size()) != nullptr);
    // Without a text there is no limit to its length; otherwise nothing differs.
    const int without_text = expand_name(message, offset, nullptr);
    QV_FUZZ_EXPECT(occupied == -1 || without_text == occupied);
    return 0;
}
