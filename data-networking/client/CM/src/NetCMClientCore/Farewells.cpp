#include "client/CM/src/NetCMClientCore/Farewells.h"

#include "common/Trace.h"

namespace quorvel {
namespace {

// What these stop indications say.
constexpr int32_t kServerGone = 2;

int32_t next_call(Farewell& farewell) {
    const Lock lock(table_lock);
    return farewell.next_call();
}

bool next_user(Farewell& farewell, Farewell::Recipient& to) {
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
