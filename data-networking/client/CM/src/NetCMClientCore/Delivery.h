// Events on their way to the callbacks.
#pragma once

#include "client/CM/src/NetCMClientInternal/Stream.h"
#include "client/CM/src/NetCMIntf/Calls.h"
#include "common/Wire.h"

namespace quorvel {

// With this status an event carries the server's reason.
inline constexpr uint32_t kStatusWithReason = 21;

inline const wire::Record& as_record(const uint32_t* words) {
    return *reinterpret_cast<const wire::Record*>(words);
}

// The null check that every event processor begins with.
bool is_null_record(const uint32_t* record);

// Looks a call up, by a function that is told the event's place in the stream. False when there is none.
template <class LookUp>
bool find_call(CallKey& key, LookUp look_up) QV_REQUIRES(app_mutex) {
    const Position at = event_position();
    const Lock lock(table_lock);
    const Call call = look_up(at);
    if (call)
        key = key_of(call);
    return static_cast<bool>(call);
}
// The trace of an event about a call that is not there.
void trace_not_active(const wire::Record& record);

// Data of an event: the reason when the status has one, else null.
void* reason_of(uint32_t status, void* reason);

// Calls a callback when there is one. Each callback gets an event record of its own.
void tell(NetCMEventCallback callback, const NetCMEvent& event);

// A user of a call, as it was looked up.
struct Recipient {
    CallKey key;
    int32_t entry;
    int32_t thread_index;
    int32_t profile;
    Use use;
    NetCMEventCallback callback;
};

// Goes through the users of a call one by one, each looked up when its turn comes: a callback may change the
// call, and what it has taken out is not told any more. Over when the call has ended.
class Users {
  public:
    // Those that an event at that place is about; of one profile alone, or of all.
    static constexpr int32_t kAllProfiles = INT32_MIN;
    Users(CallKey key, int32_t profile, Position at) : key_(key), profile_(profile), at_(at) {}
    bool next(Recipient& user);

  private:
    bool is_one(const Call& call, Recipient& user) QV_REQUIRES(table_lock);

    CallKey key_;
    int32_t profile_;
    Position at_;
    int32_t place_ = 0;
};

// Tells a user of his call, unless its end has come since he was looked up. Whether he was told.
bool tell_user(const Recipient& user, const NetCMEvent& event);
// The same with the answer to his open, which is given once.
bool tell_opened(const Recipient& user, const NetCMEvent& event);
// The library will give the answer to his open itself.
void note_due(const Recipient& user);
// The same with the end of his use, behind which nothing comes.
bool tell_ended(const Recipient& user, const NetCMEvent& event);
void trace_response(const Recipient& user);

// To every profile of every thread of a call that an event at that place is about: one event each, with
// ProfileId set to the profile.
using Tell = bool (*)(const Recipient& user, const NetCMEvent& event);
void tell_everyone(CallKey key, Position at, NetCMEvent event, Tell tell_one = tell_user);

// Takes a profile out of its entry, and the thread out of the call when it has no other, with the trace of
// it.
void take_told(const Recipient& user);

// To every registered thread that has a callback; `then` is done with its kernel thread id after each.
template <class Then>
void tell_registered(const NetCMEvent& event, Then then) QV_REQUIRES(app_mutex) {
    for (int32_t i = 0; i < NETCM_MAX_THREADS; ++i) {
        const int32_t thread_id = load(table().ThreadInfo[i].ThreadId);
        NetCMEventCallback callback = nullptr;
        {
            const Lock lock(table_lock);
            callback = callback_of(i);
        }
        if (thread_id == -1 || callback == nullptr)
            continue;
        tell(callback, event);
        then(thread_id);
    }
}

// Calls the callback of a thread that asked, and may have left meanwhile.
void tell_requester(int32_t thread_id, const NetCMEvent& event);

}  // namespace quorvel
