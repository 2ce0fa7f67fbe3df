#include "Hex.h"

#include <charconv>
#include <string_view>

namespace quorvel::netcm {

std::string hex_text(std::span<const uint8_t> bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::optional<std::vector<uint8_t>> from_hex(std::string text) {
    std::erase_if(text, [](char c) { return c == ' ' || c == ':'; });
    std::vector<uint8_t> bytes(text.size() / 2);
    bool good = text.size() % 2 == 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        const char* pair = text.data() + 2 * i;
        good = std::from_chars(pair, pair + 2, bytes[i], 16).ptr == pair + 2 && good;
    }
    return good ? std::optional(bytes) : std::nullopt;
}

}  // namespace quorvel::netcm
