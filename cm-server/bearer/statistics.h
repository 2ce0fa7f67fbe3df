// What has gone over the interfaces while calls were up on them.
#pragma once

#include <map>
#include <string>

#include "bearer/interfaces.h"

namespace quorvel::cm {

// Which counters a reset puts to 0.
enum class ResetLevel : uint32_t { kAll, kBytes, kPackets, kErrors, kBytesAndPackets };
inline constexpr uint32_t kLastResetLevel = 4;

class Statistics {
  public:
    explicit Statistics(Interfaces& interfaces) : interfaces_(interfaces) {}

    // A call is up on the interface, or is not any more. Calls that share one are counted once.
    void enter(const std::string& interface);
    void leave(const std::string& interface);

    // Calls that have ended are counted in.
    Counters read();
    void reset(ResetLevel level);

  private:
    Counters now(const std::string& interface);

    struct Use {
        int calls = 0;
        Counters start{};
    };
    Interfaces& interfaces_;
    std::map<std::string, Use> uses_;
    Counters ended_{};
};

}  // namespace quorvel::cm
