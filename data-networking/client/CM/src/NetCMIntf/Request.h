// The steps that requests share.
#pragma once

#include "client/CM/src/NetCMIntf/Table.h"
#include "common/Wire.h"

namespace quorvel {

// A header with the client id filled in; what is not named stays 0.
wire::RequestHeader request_header(wire::Command command);

// How an operation words that the calling thread is not registered.
enum class UnknownThread { IsNotPresent, IsNotFound };

// Whether the process and the calling thread are registered: 0 and the thread's index, or
// NETCM_ERR_NOT_REGISTERED. The traces name the caller's place.
uint32_t check_caller(Here here, int32_t tid, UnknownThread wording, int32_t& index) QV_REQUIRES(app_mutex);

// Makes the link ready for a request: drops what earlier ones have left, and repairs the link when the
// receiver has found it broken. Returns 0, NETCM_ERR_REREGISTER_FAILED, or NETCM_ERR_FAILURE when a signal
// has come between. Only for who is registered: whoever comes behind the last deregistration never brings the
// link up again. The traces name the caller's place.
uint32_t repair_link(Here here) QV_REQUIRES(app_mutex);

// Both together: what every request of a registered thread begins with.
uint32_t admit_caller(Here here, int32_t tid, UnknownThread wording, int32_t& index) QV_REQUIRES(app_mutex);

// Sends a request on the sync socket.
uint32_t send_header(const wire::RequestHeader& header) QV_REQUIRES(app_mutex);

// The check that queries begin with, before any lock. False, with its trace, when the process is not
// registered.
bool registered(Here here);

}  // namespace quorvel
