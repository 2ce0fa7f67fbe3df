// Names for numbers that profiles have, on command lines and in files.
#pragma once

#include <string>
#include <string_view>

namespace quorvel::command_line {

// The number that a word means for a field, such as "2" for "chap" and "auth_type"; any other text is given
// back. A security mode has several numbers for most of its forms; its name means the first.
std::string_view number_for(std::string_view field, std::string_view text);

// The names that there are for a field: "none, pap, chap"; nothing when it has none.
std::string words_for(std::string_view field);

}  // namespace quorvel::command_line
