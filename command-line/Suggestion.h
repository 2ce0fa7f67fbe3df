// What somebody may have meant by a word that is none of those that there are.
#pragma once

#include <string>
#include <vector>

namespace quorvel::command_line {

// The nearest of the words, or nothing when none is near.
std::string nearest(const std::string& word, const std::vector<std::string>& words);

// "; did you mean WORD?", or nothing.
std::string did_you_mean(const std::string& word, const std::vector<std::string>& words);

}  // namespace quorvel::command_line
