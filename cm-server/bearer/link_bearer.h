// Connections over the network interfaces of this machine, which they follow.
#pragma once

#include <array>
#include <memory>
#include <optional>

#include "bearer/bearer.h"
#include "bearer/interfaces.h"
#include "calls.h"
#include "events.h"

namespace quorvel::cm {

// A connection comes up once its interface is up with an address; when that takes longer than the limit, it
// is refused. It is suspended while the carrier is gone, told of a new address, and ended when the interface
// goes.
class LinkBearer : public Bearer {
  public:
    LinkBearer(event_base* base, std::chrono::milliseconds limit, Interfaces& interfaces,
               BearerEvents& events);

    void connect(uint32_t call, const Network& network) override;
    void disconnect(uint32_t call) override;
    // How long connections may wait from now on.
    void use(std::chrono::milliseconds limit) { limit_ = limit; }
    // Interfaces or addresses may have changed.
    void look_again();

  private:
    enum class State { kFree, kWaiting, kUp, kSuspended };
    struct Link {
        State state = State::kFree;
        Network network;
        in_addr address{};
    };
    void look(uint32_t call, bool last_time);
    void wait(uint32_t call, bool last_time);
    void follow(uint32_t call);

    std::chrono::milliseconds limit_;
    Interfaces& interfaces_;
    BearerEvents& events_;
    std::array<Link, kCallCount> links_;
    std::array<std::unique_ptr<Timer>, kCallCount> looks_;
    std::array<std::unique_ptr<Timer>, kCallCount> limits_;
};

}  // namespace quorvel::cm
