// The profiles that connections are opened from.
#pragma once

#include <optional>

#include "config.h"
#include "profile.h"

namespace quorvel::cm {

class Store {
  public:
    explicit Store(const Config& config) : config_(config) {}

    std::optional<Profile> find(int32_t id) const;
    std::optional<int32_t> default_id() const;
    std::vector<Profile> all() const { return config_.profiles; }

  private:
    const Config& config_;
};

}  // namespace quorvel::cm
