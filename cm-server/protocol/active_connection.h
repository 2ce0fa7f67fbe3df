// What the server puts into the part of an active-connection entry that the library hands on unread.
#pragma once

#include <cstdint>
#include <cstring>

#include "common/Wire.h"

namespace quorvel::cm {

struct ActiveConnectionDetails {
    char IfaceName[32];
    uint32_t Ipv4;  // network byte order
    uint32_t CallId;
    uint32_t Suspended;  // 1: suspended
    uint32_t Users;
    uint8_t Reserved[20];
};
static_assert(sizeof(ActiveConnectionDetails) == sizeof(wire::ActiveConnection::Opaque));

inline void put_details(wire::ActiveConnection& entry, const ActiveConnectionDetails& details) {
    std::memcpy(entry.Opaque, &details, sizeof(details));
}

}  // namespace quorvel::cm
