#include "bearer/network_status.h"

namespace quorvel::cm {

const char* to_text(NetworkStatus status) {
    switch (status) {
        case NetworkStatus::kAbsent:
            return "absent";
        case NetworkStatus::kDown:
            return "down";
        case NetworkStatus::kNoAddress:
            return "without an address";
        case NetworkStatus::kReady:
            return "ready";
    }
    return "unknown";  // not reached: for the compiler
}

NetworkStatus status_of(const InterfaceState* interface) {
    if (interface == nullptr)
        return NetworkStatus::kAbsent;
    if (!interface->running)
        return NetworkStatus::kDown;
    return interface->addresses.empty() ? NetworkStatus::kNoAddress : NetworkStatus::kReady;
}

}  // namespace quorvel::cm
