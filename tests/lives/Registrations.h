// Who is registered, as far as one can say from outside.
#pragma once

#include <algorithm>
#include <array>

#include "Op.h"

namespace quorvel::lives {

class Registrations {
  public:
    bool is_in(int user) const { return user < kUsers && instance(user) % 2 == 1; }
    // Also while it is on its way in.
    bool may_be_in(int user) const { return is_in(user) || (user < kUsers && arriving_[at(user)]); }
    // Not on its way out.
    bool is_surely_in(int user) const { return is_in(user) && !leaving_[at(user)]; }
    // Odd while the user is registered; each registration has its own.
    unsigned instance(int user) const { return instances_[at(user)]; }
    const std::array<unsigned, kUsers>& instances() const { return instances_; }
    int most() const {
        int count = 0;
        for (int user = 0; user < kUsers; ++user)
            count += may_be_in(user) ? 1 : 0;
        return count;
    }
    // Whether somebody was registered all the time since the instances were those.
    bool was_somebody_always_in(const std::array<unsigned, kUsers>& since) const {
        for (int user = 0; user < kUsers; ++user)
            if (since[at(user)] == instance(user) && is_surely_in(user))
                return true;
        return false;
    }

    void arrives(int user) { arriving_[at(user)] = true; }
    void has_arrived(int user, bool accepted) {
        arriving_[at(user)] = false;
        if (accepted)
            ++instances_[at(user)];
    }
    void leaves(int user) { leaving_[at(user)] = true; }
    void has_left(int user, bool accepted) {
        leaving_[at(user)] = false;
        if (accepted)
            ++instances_[at(user)];
    }

  private:
    static size_t at(int user) { return static_cast<size_t>(user); }

    std::array<unsigned, kUsers> instances_{};
    std::array<bool, kUsers> arriving_{};
    std::array<bool, kUsers> leaving_{};
};

}  // namespace quorvel::lives
