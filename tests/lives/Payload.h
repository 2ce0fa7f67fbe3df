// What the server's answers carry, so that a receiver can tell whose they are.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/Wire.h"

namespace quorvel::lives {

// The details of a connection: every field of them follows from these two.
struct Address {
    int serial;  // of the connection; no two connections of a process have the same
    int change;  // how often it has got another one

    bool operator==(const Address&) const = default;
};

wire::ConnectionBlock block_of(Address address);
// Nothing when the fields do not fit together.
std::optional<Address> address_of(const NetCMConnInfo& info);
// The same for what NetCMDeviceGetInfo writes.
std::optional<Address> address_of_lookup(const NetCMConnInfo& info);

// Tunnel data: records of the protocol, as far as a reader out of step could tell. Some are empty.
std::string tunnel_bytes(uint32_t id);

}  // namespace quorvel::lives
