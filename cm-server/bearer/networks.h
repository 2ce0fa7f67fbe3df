// Which interfaces carry packet data and which are Wi-Fi, and how they are.
#pragma once

#include <set>
#include <string>

#include "config/config.h"
#include "protocol/message.h"
#include "store/store.h"

namespace quorvel::cm {

enum class NetworkStatus : uint32_t {
    kAbsent = 0,     // no interface
    kDown = 1,       // down, or without a carrier
    kNoAddress = 2,  // up, without an IPv4 address
    kReady = 3,      // up, with an address
};
const char* to_text(NetworkStatus status);

class Networks {
  public:
    Networks(const Config& config, Store& store) : config_(config), store_(store) {}

    // The status of the best interface of the kind.
    NetworkStatus status(NetIface kind) const;
    // The kinds that have an interface that is up, as a mask.
    uint32_t available() const;
    // Tells a client both statuses.
    Message indication() const;

  private:
    std::set<std::string> interfaces(NetIface kind) const;

    const Config& config_;
    Store& store_;
};

}  // namespace quorvel::cm
