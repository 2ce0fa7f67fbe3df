// What makes a profile record acceptable.
#pragma once

#include "quorvel/NetPM.h"

namespace quorvel::cm {

// Throws PmRefusal with what is wrong.
void check_profile(const NetPMProfile& profile);

}  // namespace quorvel::cm
