#include "common/CallTimes.h"

#include <sys/time.h>

#include "common/Exported.h"
extern "C" {
// Eight bytes each and aligned to them, also on a 32-bit machine: they are written without the mutex.
alignas(8) double ps_call_act_time[2] = {0, 0};
alignas(8) double ps_call_deact_time[2] = {0, 0};
}

double (*quorvel::exported::call_act_time)[2] = &ps_call_act_time;
double (*quorvel::exported::call_deact_time)[2] = &ps_call_deact_time;

namespace quorvel {
namespace {

double set(double& time) {
    timeval now{};
    gettimeofday(&now, nullptr);
    double seconds = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1000000.0;
    __atomic_store(&time, &seconds, __ATOMIC_RELAXED);
    return seconds;
}

}  // namespace

double call_asked(double (&times)[2]) {
    return set(times[0]);
}
double call_answered(double (&times)[2]) {
    return set(times[1]);
}

double duration(const double (&times)[2]) {
    double asked = 0;
    double answered = 0;
    __atomic_load(&times[0], &asked, __ATOMIC_RELAXED);
    __atomic_load(&times[1], &answered, __ATOMIC_RELAXED);
    return answered - asked;
}

}  // namespace quorvel
