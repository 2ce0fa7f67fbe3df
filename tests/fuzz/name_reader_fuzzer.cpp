// The reader of names: the input is a message behind two bytes that say where the name begins.
#include <cstring>
#include <string>
#include <vector>

#include "Fuzz.h"
#include "dns/src/resolver/Name.h"

using namespace quorvel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    // A block of its own, so that a sanitizer sees a byte read past the message.
    const std::vector<uint8_t> message(data + 2, data + size);
    const int offset = (data[0] << 8 | data[1]) % (static_cast<int>(message.size()) + 3) - 1;
    Name name;
    const int occupied = name.read(message, offset);
    QV_FUZZ_EXPECT(occupied == -1 || (occupied > 0 && offset + occupied <= static_cast<int>(message.size())));
    QV_FUZZ_EXPECT(memchr(name.text(), '\0', sizeof(NameText)) != nullptr);
    // Read once more, where a pointer's target is known.
    const std::string text = name.text();
    QV_FUZZ_EXPECT(name.read(message, offset) == occupied && text == name.text());
    return 0;
}
