#include "client/CM/src/NetCMIntf/Calls.h"

#include <algorithm>
#include <iterator>

#include "client/CM/src/NetCMClientInternal/Stream.h"
#include "client/CM/src/NetCMIntf/Departed.h"
#include "common/Exported.h"

namespace quorvel {
namespace {

Connection connections[NETCM_MAX_CALLS] = {};
uint32_t last_generation = 0;
uint32_t last_serial = 0;

bool has_id(const Call& call, uint32_t call_id) QV_REQUIRES(table_lock) {
    return load(call.record->InUse) == 1 && static_cast<uint32_t>(load(call.record->CallId)) == call_id;
}

// The call in use that has the id.
Call slot_with(uint32_t call_id) QV_REQUIRES(table_lock) {
    for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index)
        if (has_id(slot(index), call_id))
            return slot(index);
    return {};
}

bool holds_anywhere(const NetCMCallInfo& call, int32_t profile) QV_REQUIRES(table_lock) {
    for (const NetCMThreadProf& entry : call.ThreadProf)
        if (in_use(entry) && holds(entry, profile))
            return true;
    return false;
}

// Whether the server has put the profile to the connection.
bool was_put_to(const Connection& life, int32_t profile) {
    return std::find(life.profiles, std::end(life.profiles), profile) != std::end(life.profiles);
}

// Whether the server may name the profile when it speaks of the connection.
bool is_known(const Call& call, int32_t profile) QV_REQUIRES(table_lock) {
    return was_put_to(*call.life, profile) || holds_anywhere(*call.record, profile);
}

// Whether a profile's users, or who has asked for the end, wait for something about it.
bool is_asked_for(const Call& call, int32_t profile) QV_REQUIRES(table_lock) {
    return call.life->asked_profile == profile || holds_anywhere(*call.record, profile);
}

// The first of the profile's; of profile 0 the place for one more.
Start* start_of(Connection& life, int32_t profile) {
    Start* first = nullptr;
    for (Start& start : life.starts)
        if (start.profile == profile && (first == nullptr || start.began < first->began))
            first = &start;
    return first;
}

// Whether what began there is perhaps not on the connection whose end was asked for, but on the next one with
// its id.
bool may_be_next(const Call& call, Position began) QV_REQUIRES(table_lock) {
    return call.life->asked_profile != 0 && began > call.life->asked_began && began > async_stream.handled();
}

// Whether an event at that place that names the profile can be about the connection: not before it is up, nor
// what was sent before the profile was put to it.
bool may_be_meant(const Call& call, int32_t profile, Position at) QV_REQUIRES(table_lock) {
    const Start* const start = start_of(*call.life, profile);
    return call.record->IsActive == 1 && is_known(call, profile) && (start == nullptr || start->began <= at);
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

void release_empty(NetCMCallInfo& call) {
    for (NetCMThreadProf& entry : call.ThreadProf)
        if (in_use(entry) && holds_nothing(entry))
            release(entry);
}

void begin_anew(Connection& life) QV_REQUIRES(table_lock) {
    life = {};
    life.generation = ++last_generation;
    life.until = kEverything;
}

Call slot(int32_t index) {
    return {&exported::app_info->CallInfo[index], &connections[index]};
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

CallKey key_of_use(uint32_t serial) {
    const auto has_it = [=](const Call& call) QV_REQUIRES(table_lock) {
        bool found = false;
        for_each_use(call,
                     [&](const NetCMThreadProf&, int32_t, const Use& use) { found |= use.serial == serial; });
        return found;
    };
    for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index)
        if (has_it(slot(index)))
            return key_of(slot(index));
    const Call earlier = departed_named(has_it);
    return earlier ? key_of(earlier) : CallKey{-1, 0};
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

bool is_closing_for(const Call& call, int32_t profile) {
    const Position began = began_with(call, profile);
    return began < call.life->telling || (is_closing(call) && !may_be_next(call, began));
}

bool is_being_stopped(const Call& call) {
    return call.record->CallState == kStopSent || call.life->ending == Ending::Stop;
}

// What came before the id was given away is about who had it. Of the later events an earlier connection may
// have some until its end is answered: they name a profile that the one in the slot has nothing to do with
// yet.
Call call_named(uint32_t call_id, int32_t profile, Position at) {
    const Call present = slot_with(call_id);
    const bool present_is_meant = present && may_be_meant(present, profile, at);
    if (const Call earlier = departed_named([=](const Call& call) QV_REQUIRES(table_lock) {
            return has_id(call, call_id) && call.life->ending != Ending::Refused &&
                   (at < call.life->until || (!present_is_meant && is_known(call, profile)));
        }))
        return earlier;
    return present;
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

// Each start that was accepted has one response, those of one id and profile in their order. But for one that
// was killed before it was up there may be none: behind the place where its id was given away, the next
// connection is rather meant.
Call started_call(uint32_t call_id, int32_t profile, uint32_t status, Position at) {
    const auto awaits = [=](const Call& call) QV_REQUIRES(table_lock) {
        if (!has_id(call, call_id))
            return false;
        if (call.life->ending == Ending::Refused)
            return status != 0 && holds_anywhere(*call.record, profile);
        return start_of(*call.life, profile) != nullptr;
    };
    if (const Call before = departed_named([=](const Call& call) QV_REQUIRES(table_lock) {
            return awaits(call) && (call.life->ending == Ending::Stop || at < call.life->until);
        }))
        return before;
    if (const Call present = slot_with(call_id); present && holds_anywhere(*present.record, profile))
        return present;
    if (const Call earlier = departed_named(awaits))
        return earlier;
    return call_named(call_id, profile, at);
}

Call stopped_call(uint32_t call_id, int32_t profile, Position at) {
    if (const Call earlier = departed_named([=](const Call& call) QV_REQUIRES(table_lock) {
            return has_id(call, call_id) && call.life->ending == Ending::Stop &&
                   is_asked_for(call, profile) && at >= call.life->opened && reaches(call, at);
        }))
        return earlier;
    const Call call = call_named(call_id, profile, at);
    if (!call || at < call.life->opened)
        return {};
    // An answer to an earlier stop does not end what waits for the answer to its own.
    const bool is_its_own = call.life->asked_profile == 0 || is_asked_for(call, profile);
    return is_its_own ? call : Call{};
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
            if (!in_use(entry) || load(exported::app_info->ThreadInfo[entry.ThreadIndex].ThreadId) != tid)
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

void put_use(const Call& call, int32_t entry, int32_t place, int32_t thread_index, int32_t profile,
             Position began) {
    NetCMThreadProf& of_thread = call.record->ThreadProf[entry];
    call.life->uses[entry][place] = {.began = began, .serial = ++last_serial, .opening = Opening::Awaited};
    store(of_thread.ProfileId[place], profile);
    store(of_thread.ThreadIndex, thread_index);
}

Entry add_use(const Call& call, int32_t thread_index, int32_t profile, Position began) {
    Entry entry = {.index = entry_of(*call.record, thread_index)};
    entry.was_his = entry.index >= 0;
    if (!entry.was_his)
        entry.index = std::max(entry_of(*call.record, -1), 0);
    const int32_t place = entry.was_his ? slot_of(call.record->ThreadProf[entry.index], -1) : 0;
    put_use(call, entry.index, std::max(place, 0), thread_index, profile, began);
    return entry;
}

Use* use_of(const Call& call, int32_t entry, int32_t profile) {
    const int32_t place = slot_of(call.record->ThreadProf[entry], profile);
    return place >= 0 ? &call.life->uses[entry][place] : nullptr;  // not reached: checked before
}

Position began_with(const Call& call, int32_t profile) {
    Position began = 0;
    for_each_use(call, [&](const NetCMThreadProf& entry, int32_t place, const Use& use) {
        if (load(entry.ProfileId[place]) == profile)
            began = use.began;
    });
    return began;
}

void note_start(const Call& call, const Start& start) {
    if (Start* const free = start_of(*call.life, 0))
        *free = start;
    // Its users may be gone when the server still speaks of it.
    auto& profiles = call.life->profiles;
    if (!was_put_to(*call.life, start.profile))
        *std::find(profiles, std::end(profiles) - 1, 0) = start.profile;
}

bool is_start_awaited(const Call& call, int32_t profile) {
    return start_of(*call.life, profile) != nullptr;
}

bool is_start_awaited_behind(const Call& call, int32_t profile, Position at) {
    const Start* const start = start_of(*call.life, profile);
    return start != nullptr && start->asked > at;
}

void take_start(const Call& call, int32_t profile) {
    if (Start* const start = start_of(*call.life, profile))
        *start = {};
}

void reach_back(const Call& call, int32_t profile, Position at) {
    for_each_use(call, [&](const NetCMThreadProf& entry, int32_t place, Use& use) {
        if (load(entry.ProfileId[place]) == profile)
            use.began = std::min(use.began, at);
    });
    // Its users may be gone, and what they have asked for on its way.
    if (call.life->asked_profile == profile)
        call.life->asked_began = std::min(call.life->asked_began, at);
    reach_back_kills(call, profile, at);
}

bool is_unsure(const Call& call, int32_t profile) {
    return began_with(call, profile) > async_stream.handled();
}

int count_perhaps_here(const Call& call) {
    const auto call_id = static_cast<uint32_t>(load(call.record->CallId));
    int count = 0;
    for_each_departed([&](const Call& earlier) QV_REQUIRES(table_lock) {
        if (!has_id(earlier, call_id) || earlier.life->ending == Ending::Refused)
            return;
        const NetCMThreadProf* counted = nullptr;
        for_each_use(earlier,
                     [&](const NetCMThreadProf& entry, int32_t, const Use& use) QV_REQUIRES(table_lock) {
                         if (use.began <= async_stream.handled() || &entry == counted)
                             return;
                         counted = &entry;
                         ++count;
                     });
    });
    return count;
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
    else
        call.life->telling = at + 1;
}

// Those who left the slot together with a connection that had ended before they began: theirs is the next
// one.
void join_the_next(const Call& call) QV_REQUIRES(table_lock) {
    const Call next = slot(load(call.record->CallId));
    if (load(next.record->InUse) != 1) {
        begin_anew(*next.life);
        store(next.record->CallId, load(call.record->CallId));
        store(next.record->InUse, 1);
    }
    for_each_use(call,
                 [&](const NetCMThreadProf& entry, int32_t place, const Use& use) QV_REQUIRES(table_lock) {
                     const int32_t profile = load(entry.ProfileId[place]);
                     const Entry to = add_use(next, load(entry.ThreadIndex), profile, use.began);
                     *use_of(next, to.index, profile) = use;
                 });
    for (const Start& start : call.life->starts)
        if (start.profile != 0)
            note_start(next, start);
    free_departed(call);
}

void end_uses(const Call& call, Position at) {
    for_each_use(call, [&](NetCMThreadProf& entry, int32_t place, Use& use) QV_REQUIRES(table_lock) {
        if (use.began <= at) {
            store(entry.ProfileId[place], -1);
            use = {};
        } else if (use.opening == Opening::Due) {
            // The library would tell of the earlier connection; the next one's own answer comes.
            use.opening = Opening::Awaited;
        }
    });
    release_empty(*call.record);
    for (Start& start : call.life->starts)
        if (start.began <= at)
            start = {};
    // What was asked for may be the end of the next connection already.
    const bool is_next_asked = call.life->asked_profile != 0 && call.life->asked_began > at;
    if (count_users(*call.record) == 0 && !is_next_asked)
        return clean(call);
    if (key_of(call).index < 0 && !is_next_asked)
        return join_the_next(call);
    call.record->IsActive = 0;
    call.record->ConnInfo = {};
    call.life->opened = at + 1;
    call.life->telling = 0;
    const bool is_killed = forget_killed(call, at);
    if (is_next_asked) {
        if (call.record->CallState == kStopSent && !is_killed)
            call.life->ending = Ending::Stop;
        return;
    }
    call.record->CallState = 0;
    call.life->ending = Ending::None;
}

void ask_for_end(const Call& call, Ending ending, int32_t profile) {
    const Position began = began_with(call, profile);
    // A kill's response ends the call for whoever stops it meanwhile, but not the next one with its id.
    if (call.life->ending == Ending::Kill && ending == Ending::Stop) {
        if (!may_be_next(call, began))
            return;
    } else {
        call.life->ending = ending;
    }
    if (call.life->asked_profile != 0 && began < call.life->asked_began)
        return;
    call.life->asked_profile = profile;
    call.life->asked_began = began;
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
