#include "monitor/casting.h"

#include <algorithm>

namespace quorvel::cm {

size_t Casting::choose(pid_t process, int32_t application) {
    const unsigned round = *std::ranges::min_element(taken_);
    size_t best = 0;
    int best_fitness = -1;
    for (size_t i = 0; i < lives_.size(); ++i) {
        const int fits = taken_[i] == round ? fitness(i, process, application) : -1;
        if (fits > best_fitness) {
            best = i;
            best_fitness = fits;
        }
    }
    ++taken_[best];
    processes_.emplace(process, lives_[best].process);
    return best;
}

int Casting::fitness(size_t life, pid_t process, int32_t application) const {
    const int of_application = lives_[life].application == application ? 1 : 0;
    if (const auto known = processes_.find(process); known != processes_.end())
        return (known->second == lives_[life].process ? 4 : 0) + of_application;
    const bool of_another = std::ranges::any_of(
        processes_, [&](const auto& pair) { return pair.second == lives_[life].process; });
    return (of_another ? 0 : 2) + of_application;
}

std::vector<size_t> Casting::left() const {
    std::vector<size_t> result;
    for (size_t i = 0; i < taken_.size(); ++i)
        if (taken_[i] == 0)
            result.push_back(i);
    return result;
}

}  // namespace quorvel::cm
