#include "client/CM/src/NetCMClientCore/Farewells.h"

#include <sched.h>

#include "common/Clock.h"
#include "common/Trace.h"

namespace quorvel {
namespace {

// What these stop indications say.
constexpr int32_t kServerGone = 2;

int32_t next_call(Farewell& farewell) {
    const Lock lock(table_lock);
    return farewell.next_call();
}

// A callback that is just being called for the same thread comes first; one that takes its time is not waited
// for.
constexpr int32_t kOvertakingMs = 100;

bool must_wait(const Farewell& farewell) {
    const Lock lock(table_lock);
    return farewell.next_is_being_told();
}

bool next_user(Farewell& farewell, Farewell::Recipient& to) {
    const Deadline deadline = Deadline::in(kOvertakingMs);
    while (must_wait(farewell) && deadline.left_ms() > 0)
        sched_yield();
    const Lock lock(table_lock);
    return farewell.next_user(to);
}

}  // namespace

void tell_farewell(Farewell& farewell) {
    for (int32_t id = next_call(farewell); id != -1; id = next_call(farewell)) {
        QV_TRACE(0, "Call exists for the callid [%d] \n", id);
        Farewell::Recipient to = {};
        while (next_user(farewell, to)) {
            NetCMEvent event = {NETCM_EVENT_STOP_IND, to.profile, kServerGone, nullptr};
            if (to.callback != nullptr)
                to.callback(&event);
        }
    }
}

}  // namespace quorvel
