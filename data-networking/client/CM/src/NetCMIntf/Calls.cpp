#include "client/CM/src/NetCMIntf/Calls.h"

#include "client/CM/src/NetCMIntf/Departed.h"

namespace quorvel {
namespace {

Connection connections[NETCM_MAX_CALLS] = {};
uint32_t last_generation = 0;
uint32_t last_serial = 0;

bool has_id(const Call& call, uint32_t call_id) QV_REQUIRES(table_lock) {
    return load(call.record->InUse) == 1 && static_cast<uint32_t>(load(call.record->CallId)) == call_id;
}

bool holds_anywhere(const NetCMCallInfo& call, int32_t profile) QV_REQUIRES(table_lock) {
    for (const NetCMThreadProf& entry : call.ThreadProf)
        if (in_use(entry) && holds(entry, profile))
            return true;
    return false;
}

template <class Body>
void for_each_use(const Call& call, Body body) QV_REQUIRES(table_lock) {
    for (int32_t entry = 0; entry < NETCM_MAX_THREADS; ++entry) {
        NetCMThreadProf& of_thread = call.record->ThreadProf[entry];
        if (!in_use(of_thread))
            continue;
        for (int32_t place = 0; place < NETCM_MAX_PROFILES; ++place)
            if (load(of_thread.ProfileId[place]) != -1)
                body(of_thread, place, call.life->uses[entry][place]);
    }
}

// Whether an event at that place may be about the call in its slot: not when all its users came later.
bool reaches(const Call& call, Position at) QV_REQUIRES(table_lock) {
    bool any = false;
    bool any_earlier = false;
    for_each_use(call, [&](const NetCMThreadProf&, int32_t, const Use& use) {
        any = true;
        any_earlier |= use.began <= at;
    });
    return !any || any_earlier;
}

void empty_record(NetCMCallInfo& call) QV_REQUIRES(table_lock) {
    store(call.CallId, -1);
    call.CallState = 0;
    store(call.InUse, 0);
    call.IsActive = 0;
    call.ConnInfo = {};
    for (NetCMThreadProf& entry : call.ThreadProf) {
        release(entry);
        for (int32_t& profile : entry.ProfileId)
            store(profile, -1);
    }
}

}  // namespace

void begin_anew(Connection& life) QV_REQUIRES(table_lock) {
    life = {};
    life.generation = ++last_generation;
    life.until = kEverything;
}

Call slot(int32_t index) {
    return {&g_NetCMClientAppInfo.CallInfo[index], &connections[index]};
}

CallKey key_of(const Call& call) {
    for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index)
        if (call.life == &connections[index])
            return {index, call.life->generation};
    return {-1, call.life->generation};
}

Call find(CallKey key) {
    if (key.index >= 0 && connections[key.index].generation == key.generation)
        return slot(key.index);
    return departed_with(key.generation);
}

Call call_with(int32_t profile, InUse in_use) {
    for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index) {
        const Call call = slot(index);
        const uint16_t used = load(call.record->InUse);
        if (used != 0 && (used == 1 || in_use == InUse::Any) && holds_anywhere(*call.record, profile))
            return call;
    }
    return {};
}

bool is_closing(const Call& call) {
    return call.record->CallState > kSuspended || call.life->ending != Ending::None;
}

bool is_being_stopped(const Call& call) {
    return call.record->CallState == kStopSent || call.life->ending == Ending::Stop;
}

Call call_named(uint32_t call_id, Position at) {
    if (const Call earlier = departed_named([=](const Call& call) QV_REQUIRES(table_lock) {
            return has_id(call, call_id) && call.life->ending != Ending::Refused && at < call.life->until;
        }))
        return earlier;
    for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index) {
        const Call call = slot(index);
        if (has_id(call, call_id))
            return reaches(call, at) ? call : Call{};
    }
    return {};
}

bool is_being_killed(const Call& call) {
    return call.record->CallState == kKillSent || call.life->ending == Ending::Kill;
}

Call call_without_users_being_killed() {
    for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index) {
        const Call call = slot(index);
        if (load(call.record->InUse) == 1 && call.record->CallState == kKillSent &&
            call.life->ending == Ending::None && count_users(*call.record) == 0)
            return call;
    }
    return {};
}

// The latest connection that waits for it: an earlier one that was killed before it was up is of less
// interest to everybody.
Call started_call(uint32_t call_id, int32_t profile, uint32_t status, Position at) {
    for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index) {
        const Call call = slot(index);
        if (has_id(call, call_id) && holds_anywhere(*call.record, profile))
            return call;
    }
    if (const Call earlier = departed_named([=](const Call& call) QV_REQUIRES(table_lock) {
            if (!has_id(call, call_id) || (call.life->ending == Ending::Refused && status == 0))
                return false;
            return call.life->killed_profile == profile || holds_anywhere(*call.record, profile);
        }))
        return earlier;
    return call_named(call_id, at);
}

Call stopped_call(uint32_t call_id, int32_t profile, Position at) {
    if (const Call earlier = departed_named([=](const Call& call) QV_REQUIRES(table_lock) {
            return has_id(call, call_id) && call.life->ending == Ending::Stop &&
                   holds_anywhere(*call.record, profile);
        }))
        return earlier;
    const Call call = call_named(call_id, at);
    return call && at >= call.life->opened ? call : Call{};
}

bool is_closing_elsewhere(int32_t profile) {
    return static_cast<bool>(departed_named([=](const Call& call) QV_REQUIRES(table_lock) {
        return call.life->ending != Ending::Refused && holds_anywhere(*call.record, profile);
    }));
}

Call call_elsewhere(int32_t tid, int32_t profile, int32_t& entry) {
    return departed_named([&](const Call& call) QV_REQUIRES(table_lock) {
        entry = entry_of_thread(*call.record, tid, profile);
        return entry >= 0 && call.life->ending != Ending::Refused && call.life->ending != Ending::Told;
    });
}

bool uses_a_call(int32_t tid, int32_t& thread_index) {
    const auto is_user = [&](const Call& call) QV_REQUIRES(table_lock) {
        for (const NetCMThreadProf& entry : call.record->ThreadProf) {
            if (!in_use(entry) || load(g_NetCMClientAppInfo.ThreadInfo[entry.ThreadIndex].ThreadId) != tid)
                continue;
            thread_index = entry.ThreadIndex;
            return true;
        }
        return false;
    };
    for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index)
        if (load(slot(index).record->InUse) == 1 && is_user(slot(index)))
            return true;
    return departed_named([&](const Call& call) QV_REQUIRES(table_lock) {
               return call.life->ending != Ending::Refused && is_user(call);
           }) ||
           Farewell::waits_for(tid, thread_index);
}

void add_use(const Call& call, int32_t entry, int32_t place, int32_t thread_index, int32_t profile,
             Position began) {
    NetCMThreadProf& of_thread = call.record->ThreadProf[entry];
    call.life->uses[entry][place] = {.began = began, .serial = ++last_serial, .opening = Opening::Awaited};
    store(of_thread.ProfileId[place], profile);
    store(of_thread.ThreadIndex, thread_index);
}

Use* use_of(const Call& call, int32_t entry, int32_t profile) {
    const int32_t place = slot_of(call.record->ThreadProf[entry], profile);
    return place >= 0 ? &call.life->uses[entry][place] : nullptr;
}

Position began_with(const Call& call, int32_t profile) {
    Position began = 0;
    for_each_use(call, [&](const NetCMThreadProf& entry, int32_t place, const Use& use) {
        if (load(entry.ProfileId[place]) == profile)
            began = use.began;
    });
    return began;
}

int32_t entry_holding(const NetCMCallInfo& call, int32_t thread_index, int32_t profile) {
    for (int32_t entry = 0; entry < NETCM_MAX_THREADS; ++entry)
        if (thread_index != -1 && load(call.ThreadProf[entry].ThreadIndex) == thread_index &&
            holds(call.ThreadProf[entry], profile))
            return entry;
    return -1;
}

bool take_profile(const Call& call, int32_t entry, int32_t profile) {
    NetCMThreadProf& of_thread = call.record->ThreadProf[entry];
    const int32_t place = slot_of(of_thread, profile);
    if (place >= 0) {
        store(of_thread.ProfileId[place], -1);
        call.life->uses[entry][place] = {};
    }
    if (!holds_nothing(of_thread))
        return false;
    release(of_thread);
    return true;
}

void drop_told(NetCMCallInfo& record, const Connection& life) {
    for (int32_t entry = 0; entry < NETCM_MAX_THREADS; ++entry)
        for (int32_t place = 0; place < NETCM_MAX_PROFILES; ++place)
            if (life.uses[entry][place].opening == Opening::Over)
                record.ThreadProf[entry].ProfileId[place] = -1;
}

void begin_telling(const Call& call, Position at) {
    bool all = true;
    for_each_use(call, [&](const NetCMThreadProf&, int32_t, const Use& use) { all &= use.began <= at; });
    if (all)
        call.life->ending = Ending::Told;
}

void end_uses(const Call& call, Position at) {
    for_each_use(call, [&](NetCMThreadProf& entry, int32_t place, Use& use) QV_REQUIRES(table_lock) {
        if (use.began > at)
            return;
        store(entry.ProfileId[place], -1);
        use = {};
    });
    for (NetCMThreadProf& entry : call.record->ThreadProf)
        if (in_use(entry) && holds_nothing(entry))
            release(entry);
    if (count_users(*call.record) == 0)
        return clean(call);
    call.record->IsActive = 0;
    call.record->CallState = 0;
    call.record->ConnInfo = {};
    call.life->ending = Ending::None;
}

void clean(const Call& call) {
    if (key_of(call).index < 0)
        return free_departed(call);
    empty_record(*call.record);
    begin_anew(*call.life);
}

// A new generation from the start: nobody who named the slot before is meant.
void Departure::leave(const Call& call, Position until) {
    place_->record = *call.record;
    place_->life = *call.life;
    place_->life.until = until;
    keep_departed(place_);
    place_ = nullptr;
    clean(call);
}

}  // namespace quorvel
