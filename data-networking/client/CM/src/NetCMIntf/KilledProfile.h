// Calls that were killed by a user who was the only one of the profile.
#pragma once

#include "client/CM/src/NetCMIntf/Table.h"

namespace quorvel {

// The killer's use of the profile ends with its kill. When it was the only one, no lookup by profile finds
// the call any more; these keep the profile for the response that cleans the record.
void remember_killed_profile(const NetCMCallInfo& call, int32_t profile) QV_REQUIRES(app_mutex);
void forget_killed_profile(int32_t index) QV_REQUIRES(app_mutex);
NetCMCallInfo* call_left_by_its_killer(int32_t profile) QV_REQUIRES(app_mutex);

}  // namespace quorvel
