// Asking the server to stop a call.
#pragma once

#include "client/CM/src/NetCMIntf/Calls.h"

namespace quorvel {

// Marks the call as closing: the profile's last user leaves. Returns the call's id.
int32_t begin_stop(const Call& call, int32_t profile) QV_REQUIRES(table_lock);
// Sends the stop request. Returns the result of the send.
uint32_t send_stop_request(int32_t call_id, int32_t client_id, int32_t profile) QV_REQUIRES(app_mutex);

// After a local close answer: users that leave at the same moment each see the other and are answered
// locally, so the last answer finds the call without users and stops it.
void stop_if_left(CallKey key, int32_t profile) QV_REQUIRES(app_mutex);

}  // namespace quorvel
