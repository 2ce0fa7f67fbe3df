// Connections over the network interfaces of this machine, as they are.
#pragma once

#include <array>
#include <functional>
#include <optional>

#include "bearer.h"
#include "calls.h"
#include "config/config.h"
#include "events.h"

namespace quorvel::cm {

class LinkBearer : public Bearer {
  public:
    LinkBearer(event_base* base, const Config& config, BearerEvents& events);

    void connect(uint32_t call, const Profile& profile) override;
    void disconnect(uint32_t call) override;

  private:
    struct Link {
        std::unique_ptr<Timer> check;
        Network network;
    };
    void check(uint32_t call);

    event_base* base_;
    const Config& config_;
    BearerEvents& events_;
    std::array<Link, kCallCount> links_;
};

}  // namespace quorvel::cm
