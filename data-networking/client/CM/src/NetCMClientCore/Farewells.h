// Telling the users of a link that has ended.
#pragma once

#include "client/CM/src/NetCMIntf/Calls.h"

namespace quorvel {

// To every user a stop indication as though the server had sent it. Without any lock.
void tell_farewell(Farewell& farewell);

}  // namespace quorvel
