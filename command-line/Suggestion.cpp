#include "command-line/Suggestion.h"

#include <algorithm>
#include <numeric>

namespace quorvel::command_line {
namespace {

// How many letters are wrong, missing, too many, or have changed places with their neighbour.
size_t distance(const std::string& from, const std::string& to) {
    std::vector<size_t> before;
    std::vector<size_t> last(to.size() + 1);
    std::iota(last.begin(), last.end(), size_t{0});
    for (size_t i = 1; i <= from.size(); ++i) {
        std::vector<size_t> row(to.size() + 1, i);
        for (size_t j = 1; j <= to.size(); ++j) {
            row[j] =
                std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
        before = std::move(last);
        last = std::move(row);
    }
    return last.back();
}

}  // namespace

std::string nearest(const std::string& word, const std::vector<std::string>& words) {
    std::string found;
    // A third of a word may be wrong; two letters have one in common at least.
    size_t best = std::max<size_t>(word.size() / 3, 1) + 1;
    for (const std::string& candidate : words) {
        const size_t wrong = distance(word, candidate);
        if (wrong < best && wrong < candidate.size()) {
            best = wrong;
            found = candidate;
        }
    }
    return found;
}

std::string did_you_mean(const std::string& word, const std::vector<std::string>& words) {
    const std::string found = nearest(word, words);
    return found.empty() ? "" : "; did you mean " + found + "?";
}

}  // namespace quorvel::command_line
