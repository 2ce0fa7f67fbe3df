#include "client/CM/src/NetCMClientCore/Delivery.h"

#include "client/CM/src/NetCMPrivate.h"

namespace quorvel {

bool is_null_record(const uint32_t* record) {
    if (record != nullptr)
        return false;
    QV_TRACE(5, "NULL pointer variable passed\n");
    return true;
}

void trace_not_active(const wire::Record& record) {
    QV_TRACE(2, "Callid [%d] not active \n", static_cast<int>(record.CallId));
}

void* reason_of(uint32_t status, void* reason) {
    return status == kStatusWithReason ? reason : nullptr;
}

void tell(NetCMEventCallback callback, const NetCMEvent& event) {
    if (callback == nullptr)
        return;
    NetCMEvent own = event;
    callback(&own);
}

void tell_response(int32_t thread_index, NetCMEventCallback callback, const NetCMEvent& event) {
    QV_TRACE(0, "thread index[%d] event_cb [0x%x]\n", thread_index, narrow(callback));
    tell(callback, event);
}

bool Users::is_one(const Call& call, Recipient& user) {
    const int32_t number = place_ / NETCM_MAX_PROFILES;
    const int32_t place = place_ % NETCM_MAX_PROFILES;
    const NetCMThreadProf& entry = call.record->ThreadProf[number];
    const int32_t profile = load(entry.ProfileId[place]);
    Use& use = call.life->uses[number][place];
    if (!in_use(entry) || profile == -1 || use.began > at_ ||
        (profile_ != kAllProfiles && profile != profile_))
        return false;
    user = {number, load(entry.ThreadIndex), profile, use.opening, callback_of(load(entry.ThreadIndex))};
    return true;
}

bool Users::next(Recipient& user) {
    constexpr int32_t kPlaces = NETCM_MAX_THREADS * NETCM_MAX_PROFILES;
    const Lock lock(table_lock);
    const Call call = find(key_);
    while (call && place_ < kPlaces) {
        const bool found = is_one(call, user);
        // An entry holds a profile once; should somebody have put it there twice, it counts once.
        place_ += found && profile_ != kAllProfiles ? NETCM_MAX_PROFILES - place_ % NETCM_MAX_PROFILES : 1;
        if (found)
            return true;
    }
    return false;
}

void tell_everyone(CallKey key, Position at, NetCMEvent event) {
    Users users(key, Users::kAllProfiles, at);
    Recipient user;
    while (users.next(user)) {
        event.ProfileId = user.profile;
        tell(user.callback, event);
    }
}

void take_told(CallKey key, const Recipient& user) {
    {
        const Lock lock(table_lock);
        const Call call = find(key);
        if (!call)
            return;
        take_profile(call, user.entry, user.profile);
    }
    trace_deleted(user.profile, user.entry);
}

void tell_requester(int32_t thread_id, const NetCMEvent& event) {
    int32_t index = 0;
    if (NetCMGetThreadIndex(thread_id, &index) != 0)
        return;
    NetCMEventCallback callback = nullptr;
    {
        const Lock lock(table_lock);
        callback = callback_of(index);
    }
    tell(callback, event);
}

}  // namespace quorvel
