#include "client/CM/src/NetCMClientCore/Delivery.h"

#include <algorithm>

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

void trace_response(const Recipient& user) {
    QV_TRACE(0, "thread index[%d] event_cb [0x%x]\n", user.thread_index, narrow(user.callback));
}

namespace {

// The use of a user who is still there, or null.
Use* use_still_there(const Recipient& user) QV_REQUIRES(table_lock) {
    const Call call = find(user.key);
    if (!call)           // not reached: only between two steps
        return nullptr;  // not reached: only between two steps
    const bool same = load(call.record->ThreadProf[user.entry].ThreadIndex) == user.thread_index;
    return same ? use_of(call, user.entry, user.profile) : nullptr;  // not reached: only between two steps
}

// From here until his callback returns the end of the server does not overtake what he is told.
template <class Admit>
bool begin_to_tell(const Recipient& user, Admit admit) {
    const Lock lock(table_lock);
    Use* const use = use_still_there(user);
    if (use == nullptr || use->opening == Opening::Over)  // not reached: only between two steps
        return false;                                     // not reached: only between two steps
    if (!admit(*use))                                     // not reached: only between two steps
        return false;                                     // not reached: only between two steps
    being_told = user.thread_index;
    return true;
}

void end_to_tell() {
    const Lock lock(table_lock);
    being_told = -1;
}

template <class Admit>
bool tell_if(const Recipient& user, const NetCMEvent& event, Admit admit) {
    if (!begin_to_tell(user, admit))
        return false;
    tell(user.callback, event);
    end_to_tell();
    return true;
}

}  // namespace

bool tell_user(const Recipient& user, const NetCMEvent& event) {
    return tell_if(user, event, [](const Use&) { return true; });
}

bool tell_opened(const Recipient& user, const NetCMEvent& event) {
    return tell_if(user, event, [](Use& use) {
        const bool first = use.opening != Opening::Answered;
        use.opening = Opening::Answered;
        return first;
    });
}

void note_due(const Recipient& user) {
    const Lock lock(table_lock);
    if (Use* const use = use_still_there(user))  // not reached: only between two steps
        use->opening = Opening::Due;
}

bool tell_ended(const Recipient& user, const NetCMEvent& event) {
    return tell_if(user, event, [](Use& use) {
        use.opening = Opening::Over;
        return true;
    });
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
    const int32_t thread_index = load(entry.ThreadIndex);
    user = {key_, number, thread_index, profile, use, callback_of(thread_index)};
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

void tell_everyone(CallKey key, Position at, NetCMEvent event, Tell tell_one) {
    Users users(key, Users::kAllProfiles, at);
    Recipient user;
    while (users.next(user)) {
        event.ProfileId = user.profile;
        tell_one(user, event);
    }
}

void take_told(const Recipient& user) {
    {
        const Lock lock(table_lock);
        const Call call = find(user.key);
        if (!call)   // not reached: only between two steps
            return;  // not reached: only between two steps
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
