#include "client/CM/src/NetCMIntf/Departed.h"
#include "common/Exported.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace quorvel {
namespace {

// Kills that the server has not answered yet.
constexpr int32_t kNoProfile = 0;
struct AskedKill {
    int32_t profile = kNoProfile;
    CallKey call = {-1, 0};
    Position began = 0;  // where the profile's use of it began
};
AskedKill asked_kills[NETCM_MAX_KILLS] = {};

template <class Body>
void for_each_kill_of(const Call& call, Body body) QV_REQUIRES(table_lock) {
    const CallKey key = key_of(call);
    for (AskedKill& kill : asked_kills)
        if (kill.profile != kNoProfile && kill.call.index == key.index &&
            kill.call.generation == key.generation)
            body(kill);
}

void take_profiles_of(const Call& call, int32_t thread_index) QV_REQUIRES(table_lock) {
    for (NetCMThreadProf& entry : call.record->ThreadProf)
        if (load(entry.ThreadIndex) == thread_index)
            release(entry);
}

}  // namespace

Call departed_with(uint32_t generation) {
    return departed_named([=](const Call& call) { return call.life->generation == generation; });
}

void keep_departed(Departed* one) {
    Departed** end = &all_departed;
    while (*end != nullptr)
        end = &(*end)->next;
    one->next = nullptr;
    *end = one;
}

void free_departed(const Call& call) {
    Departed** link = &all_departed;
    for (; *link != nullptr; link = &(*link)->next) {  // not reached: checked before
        if (&(*link)->record != call.record)
            continue;
        free(std::exchange(*link, (*link)->next));
        return;
    }
}

Departed* take_departed() {
    return std::exchange(all_departed, nullptr);
}

void forget_departed() {
    for (Departed* one = take_departed(); one != nullptr;)
        free(std::exchange(one, one->next));
}

void forget_refused(int32_t thread_index) {
    for (Departed* one = all_departed; one != nullptr; one = one->next)
        if (one->life.ending == Ending::Refused)
            take_profiles_of({&one->record, &one->life}, thread_index);
}

// A refusal of what was asked for before would have come by now.
void forget_refused(int32_t call_id, int32_t thread_index, int32_t profile) {
    for (Departed* one = all_departed; one != nullptr;) {
        const Call call = {&one->record, &one->life};
        one = one->next;
        if (call.life->ending != Ending::Refused)
            continue;
        const int32_t entry = entry_holding(*call.record, thread_index, profile);
        if (entry >= 0)
            take_profile(call, entry, profile);
        if (load(call.record->CallId) == call_id || count_users(*call.record) == 0)
            free_departed(call);
    }
}

Departure::Departure() : place_(static_cast<Departed*>(malloc(sizeof(Departed)))) {}

Departure::~Departure() {
    free(place_);
}

void note_kill(int32_t profile, CallKey call) {
    const Call meant = find(call);
    for (AskedKill& kill : asked_kills) {  // not reached: checked before
        if (kill.profile != kNoProfile)
            continue;
        kill = {profile, call, meant ? began_with(meant, profile) : 0};
        return;
    }
}

bool forget_killed(const Call& call, Position at) {
    bool any_left = false;
    for_each_kill_of(call, [&](AskedKill& kill) {
        if (kill.began <= at)
            kill.call = {-1, 0};
        else
            any_left = true;
    });
    return any_left;
}

void reach_back_kills(const Call& call, int32_t profile, Position at) {
    for_each_kill_of(call, [=](AskedKill& kill) {
        if (kill.profile == profile)
            kill.began = std::min(kill.began, at);
    });
}

bool take_kill(int32_t profile, CallKey& call) {
    for (AskedKill& kill : asked_kills) {
        if (kill.profile != profile)
            continue;
        call = kill.call;
        kill = {};
        return true;
    }
    return false;
}

void forget_kills_and_tunnels() {
    NetCMClientAppInfo& info = *exported::app_info;
    for (NetCMKillReq& request : info.KillReq)
        request = {-1, -1};
    for (NetCMTunnelReq& request : info.TunnelReq)
        request = {-1, -1};
    for (AskedKill& kill : asked_kills)
        kill = {};
}

void forget_pending_requests() {
    forget_kills_and_tunnels();
    for (NetCMProperProfReq& request : exported::app_info->ProperProfReq)
        request = {0, -1, -1};
}

}  // namespace quorvel
