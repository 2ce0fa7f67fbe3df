// Who of those that register takes which recorded client's part.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <vector>

#include "record/lives.h"

namespace quorvel::cm {

class Casting {
  public:
    explicit Casting(const std::vector<Life>& lives) : lives_(lives), taken_(lives.size()) {}

    // The part for a client of this process and application. A process keeps to the recorded process whose
    // parts it has; where an application fits, it goes before. When all parts are taken, they begin anew.
    size_t choose(pid_t process, int32_t application);
    // Those that nobody has taken.
    std::vector<size_t> left() const;

  private:
    int fitness(size_t life, pid_t process, int32_t application) const;

    const std::vector<Life>& lives_;
    std::vector<unsigned> taken_;
    std::map<pid_t, int64_t> processes_;  // now, and then
};

}  // namespace quorvel::cm
