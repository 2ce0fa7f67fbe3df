#include "command-line/ProfileWords.h"

#include <algorithm>
#include <array>

namespace quorvel::command_line {
namespace {

struct Word {
    std::string_view field;
    std::string_view word;
    std::string_view number;
};
constexpr std::array kWords{
    Word{"auth_type", "none", "0"},     Word{"auth_type", "pap", "1"},     Word{"auth_type", "chap", "2"},
    Word{"security_mode", "open", "1"}, Word{"security_mode", "wep", "2"}, Word{"security_mode", "psk", "4"},
    Word{"security_mode", "eap", "5"},
};

}  // namespace

std::string_view number_for(std::string_view field, std::string_view text) {
    const auto is_meant = [&](const Word& word) { return word.field == field && word.word == text; };
    const auto found = std::ranges::find_if(kWords, is_meant);
    return found == kWords.end() ? text : found->number;
}

std::string words_for(std::string_view field) {
    std::string all;
    for (const Word& word : kWords) {
        if (word.field == field) {
            all.append(all.empty() ? "" : ", ").append(word.word);
        }
    }
    return all;
}

}  // namespace quorvel::command_line
