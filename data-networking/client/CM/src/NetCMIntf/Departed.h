// Connections that have left their slot before their end was told, the oldest first.
#pragma once

#include "client/CM/src/NetCMIntf/Calls.h"

namespace quorvel {

struct Departed {
    Departed* next;
    NetCMCallInfo record;
    Connection life;
};

inline constinit Departed* all_departed QV_GUARDED_BY(table_lock) = nullptr;

// The first for which the condition holds.
template <class Condition>
Call departed_named(Condition condition) QV_REQUIRES(table_lock) {
    for (Departed* one = all_departed; one != nullptr; one = one->next) {
        const Call call = {&one->record, &one->life};
        if (condition(call))
            return call;
    }
    return {};
}

template <class Body>
void for_each_departed(Body body) QV_REQUIRES(table_lock) {
    departed_named([&](const Call& call) QV_REQUIRES(table_lock) {
        body(call);
        return false;
    });
}

Call departed_with(uint32_t generation) QV_REQUIRES(table_lock);
// What lies there is about the profile's users: kills, too.
void reach_back_kills(const Call& call, int32_t profile, Position at) QV_REQUIRES(table_lock);
void keep_departed(Departed* one) QV_REQUIRES(table_lock);
void free_departed(const Call& call) QV_REQUIRES(table_lock);
// All of them, for whoever frees them; none is left.
Departed* take_departed() QV_REQUIRES(table_lock);

}  // namespace quorvel
