// How a network is, as applications are told.
#pragma once

#include <cstdint>

#include "bearer/interfaces.h"

namespace quorvel::cm {

enum class NetworkStatus : uint32_t {
    kAbsent = 0,     // no interface
    kDown = 1,       // down, or without a carrier
    kNoAddress = 2,  // up, without an IPv4 address
    kReady = 3,      // up, with an address
};
const char* to_text(NetworkStatus status);

// Of an interface; null is one that is not there.
NetworkStatus status_of(const InterfaceState* interface);

}  // namespace quorvel::cm
