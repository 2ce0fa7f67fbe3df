// A connection's details in their three forms: the block on the wire, the stored record, the delivered
// record.
#pragma once

#include "common/AppMutex.h"
#include "common/Wire.h"

namespace quorvel {

// What to do with the stored interface name when the block carries none.
enum class EmptyName { Stored, Kept };

// Reads the block behind a record from the async socket. False, with a trace, when it cannot be had.
bool read_connection_block(wire::ConnectionBlock& block) QV_REQUIRES(app_mutex);

// Keeps a block in the call's record.
void store_connection(NetCMCallConnInfo& stored, const wire::ConnectionBlock& block, EmptyName empty_name);

// The stored record as an application gets it.
NetCMConnInfo deliverable(const NetCMCallConnInfo& stored, int32_t profile);

}  // namespace quorvel
