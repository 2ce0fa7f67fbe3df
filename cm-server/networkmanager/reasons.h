// What NetworkManager gives as the reason of an end, in our words.
#pragma once

#include <cstdint>

#include "protocol/status.h"

namespace quorvel::cm {

// NetworkManager's reason, for the log, and the word that applications are told.
struct EndReason {
    const char* text;
    Reason reason;
};

// Of a device that has failed or has been disconnected (NMDeviceStateReason).
EndReason device_reason(uint32_t number);
// Of an active connection that has ended (NMActiveConnectionStateReason).
EndReason connection_reason(uint32_t number);
// Whether a device's reason says more than that it is disconnected.
bool says_why(uint32_t device_reason);

}  // namespace quorvel::cm
