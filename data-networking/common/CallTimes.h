// Taking the times of ps_call_act_time and ps_call_deact_time.
#pragma once

#include "quorvel/NetCM.h"

namespace quorvel {

// Take the time of the request or of its answer, and give it back.
double call_asked(double (&times)[2]);
double call_answered(double (&times)[2]);

double duration(const double (&times)[2]);

}  // namespace quorvel
