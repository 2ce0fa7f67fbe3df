// The name encoder: whatever it accepts is read back as it was, apart from what it is known to change.
#include <algorithm>
#include <cstring>
#include <string>

#include "Fuzz.h"
#include "dns/src/resolver/Name.h"

using namespace quorvel;

namespace {

constexpr size_t kLongestLabel = 63;

// Whether every label with a dot behind it has a length that is allowed.
bool is_encodable(const std::string& name) {
    size_t start = 0;
    for (size_t dot = name.find('.'); dot != std::string::npos; dot = name.find('.', start)) {
        if (dot == start || dot - start > kLongestLabel)
            return false;
        start = dot + 1;
    }
    return true;
}

size_t length_of_last_label(const std::string& name) {
    return name.size() - (name.rfind('.') + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string name(reinterpret_cast<const char*>(data), std::min(size, kLongestQueryName));
    MessageBuffer out;
    out.fill(0xEE);
    const int length = encode_name(name, out);
    QV_FUZZ_EXPECT((length >= 0) == is_encodable(name));
    if (length < 0)
        return 0;
    const auto written = static_cast<size_t>(length);
    const bool ends_in_dot = !name.empty() && name.back() == '.';
    QV_FUZZ_EXPECT(written == (name.empty() ? 1 : name.size() + (ends_in_dot ? 1 : 2)));
    QV_FUZZ_EXPECT(out[written - 1] == 0);
    QV_FUZZ_EXPECT(std::all_of(out.begin() + length, out.end(), [](uint8_t byte) { return byte == 0xEE; }));
    // A long last label and the label before a final dot are not read back as they were written.
    if (ends_in_dot || length_of_last_label(name) > kLongestLabel || name.size() + 1 > kNameTextBytes)
        return 0;
    Name read_back;
    QV_FUZZ_EXPECT(read_back.read(std::span(out).first(written), 0) == length);
    const char* const text = read_back.text();
    QV_FUZZ_EXPECT(memcmp(text, name.data(), name.size()) == 0 && text[name.size()] == '\0');
    return 0;
}
