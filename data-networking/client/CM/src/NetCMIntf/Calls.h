// Calls beyond their records.
//
// The exported record is a slot, and its number is what the server calls the call id. A server may give the
// id of a connection that has ended to the next one before its end has been told. So beside the slot stands
// which connection it holds, and since when each user belongs to it; and what has left its slot before its
// end was told is kept until then.
#pragma once

#include "client/CM/src/NetCMIntf/Table.h"

namespace quorvel {

// Places in the async stream, in bytes: what was sent earlier lies before. An event that does not come from
// the stream lies behind everything.
using Position = uint64_t;
inline constexpr Position kEverything = UINT64_MAX;

// What is to come for a connection.
enum class Ending : uint8_t {
    None,
    Stop,     // asked for by its last user: a close response
    Kill,     // asked for: a kill response
    Refused,  // its record is gone with another profile's refusal; each profile's own may follow
    Told,     // nothing: its users are being told right now
};

// The answer to an open: the server's is awaited, the library's own is on its way, or it has been given.
// Over: the end has been told, too.
enum class Opening : uint8_t { Awaited, Due, Answered, Over };

// One profile of one thread.
struct Use {
    Position began;   // what lies before in the stream is about an earlier connection
    uint32_t serial;  // another one each time that the thread opens the profile
    Opening opening;
};

// A start that the server has accepted and whose response has not come.
struct Start {
    int32_t profile;  // 0: none
    Position began;
    Position asked;  // what lies before had come when the server was asked, and answers nothing of this
};

struct Connection {
    uint32_t generation;
    Ending ending;
    int32_t asked_profile;  // in the request for its end
    Position asked_began;   // where the use began whose end was asked for
    Position opened;        // no close response lies before that is its own
    Position until;         // where its id was given to the next one
    Position telling;       // whose use began before this is being told of the end; 0: nobody
    Start starts[8];
    int32_t profiles[8];  // that the server has put to it; of others it says nothing
    Use uses[NETCM_MAX_THREADS][NETCM_MAX_PROFILES];
};

// A record and what stands beside it.
struct Call {
    NetCMCallInfo* record = nullptr;
    Connection* life = nullptr;
    explicit operator bool() const { return record != nullptr; }
};

// Names a connection, also when its slot is another's meanwhile.
struct CallKey {
    int32_t index;
    uint32_t generation;
};

Call slot(int32_t index) QV_REQUIRES(table_lock);
CallKey key_of(const Call& call) QV_REQUIRES(table_lock);
// The connection in its slot, or where it waits for its end; none when it has ended.
Call find(CallKey key) QV_REQUIRES(table_lock);
// The connection that has the use with this number; none when it has ended.
CallKey key_of_use(uint32_t serial) QV_REQUIRES(table_lock);

// The call in use that holds the profile. A record that somebody has marked by hand with another word than 1
// is in use for some and not for others.
enum class InUse { Any, One };
Call call_with(int32_t profile, InUse in_use) QV_REQUIRES(table_lock);
// Whether a connection that has left its slot still has to be closed for a user of the profile.
bool is_closing_elsewhere(int32_t profile) QV_REQUIRES(table_lock);
// The connection outside its slot that a thread, by its kernel id, still uses with the profile, and his
// entry.
Call call_elsewhere(int32_t tid, int32_t profile, int32_t& entry) QV_REQUIRES(table_lock);
// Whether a call's end has been asked for, by its record or by what stands beside it. Not for the users of a
// profile that may be on the next connection with its id.
bool is_closing(const Call& call) QV_REQUIRES(table_lock);
bool is_closing_for(const Call& call, int32_t profile) QV_REQUIRES(table_lock);
bool is_being_stopped(const Call& call) QV_REQUIRES(table_lock);
bool is_being_killed(const Call& call) QV_REQUIRES(table_lock);
// A call that nothing but a kill's response would clean, and whose record alone says so.
Call call_without_users_being_killed() QV_REQUIRES(table_lock);
// Whether the thread with that kernel id uses any call; if so, its index.
bool uses_a_call(int32_t tid, int32_t& thread_index) QV_REQUIRES(table_lock);

// The connection that an event is about: by the call id, the event's place in the stream, and the profile.
Call call_named(uint32_t call_id, int32_t profile, Position at) QV_REQUIRES(table_lock);
Call started_call(uint32_t call_id, int32_t profile, uint32_t status, Position at) QV_REQUIRES(table_lock);
Call stopped_call(uint32_t call_id, int32_t profile, Position at) QV_REQUIRES(table_lock);

// A start of the profile was accepted, and its response has come.
void note_start(const Call& call, const Start& start) QV_REQUIRES(table_lock);
void take_start(const Call& call, int32_t profile) QV_REQUIRES(table_lock);
bool is_start_awaited(const Call& call, int32_t profile) QV_REQUIRES(table_lock);
// One that was asked for behind that place.
bool is_start_awaited_behind(const Call& call, int32_t profile, Position at) QV_REQUIRES(table_lock);

// A slot's next connection.
void begin_anew(Connection& life) QV_REQUIRES(table_lock);

// Puts a use into a place of an entry.
void put_use(const Call& call, int32_t entry, int32_t place, int32_t thread_index, int32_t profile,
             Position began) QV_REQUIRES(table_lock);
// Puts a use of a thread into his entry, or into a free one. Whoever comes has checked that there is room;
// where there is none, the first place is overwritten.
struct Entry {
    int32_t index = 0;
    bool was_his = false;
};
Entry add_use(const Call& call, int32_t thread_index, int32_t profile, Position began)
    QV_REQUIRES(table_lock);
// The use of a thread's entry, or null.
Use* use_of(const Call& call, int32_t entry, int32_t profile) QV_REQUIRES(table_lock);
// When the connection of a profile's users began, for one more of them.
Position began_with(const Call& call, int32_t profile) QV_REQUIRES(table_lock);
// What lies at that place is known to be about the profile's users, although it had arrived before they came.
void reach_back(const Call& call, int32_t profile, Position at) QV_REQUIRES(table_lock);
// Whether the call that the users of the profile were put to may be an earlier one with the id: its end may
// be among what had arrived by then and is not handled yet. Afterwards it is theirs, which they share with
// another profile.
bool is_unsure(const Call& call, int32_t profile) QV_REQUIRES(table_lock);
// How many threads have left the slot together with a connection that may have ended before they came: theirs
// is the one in the slot then.
int count_perhaps_here(const Call& call) QV_REQUIRES(table_lock);
// The entry of a thread that holds the profile, or -1.
int32_t entry_holding(const NetCMCallInfo& call, int32_t thread_index, int32_t profile)
    QV_REQUIRES(table_lock);
// Takes a profile out of an entry, and frees the entry when it holds no other. Whether it was freed.
bool take_profile(const Call& call, int32_t entry, int32_t profile) QV_REQUIRES(table_lock);

// The users are being told of the end: nobody joins from now on.
void begin_telling(const Call& call, Position at) QV_REQUIRES(table_lock);
// Takes out of a record, which is a copy, whom the end has been told already.
void drop_told(NetCMCallInfo& record, const Connection& life) QV_REQUIRES(table_lock);
// Ends the uses that began before; what remains is a new connection. Frees the record when nothing does.
void end_uses(const Call& call, Position at) QV_REQUIRES(table_lock);

// Its end is asked for by whoever uses the profile.
void ask_for_end(const Call& call, Ending ending, int32_t profile) QV_REQUIRES(table_lock);

// Frees the entries of a record that hold no profile any more.
void release_empty(NetCMCallInfo& call) QV_REQUIRES(table_lock);
// Frees a slot, or what has left it.
void clean(const Call& call) QV_REQUIRES(table_lock);
// Frees what is kept beside the slots.
void forget_departed() QV_REQUIRES(table_lock);
// A thread is not told of refusals any more; or not of those of this call id, nor of those of this profile.
void forget_refused(int32_t thread_index) QV_REQUIRES(table_lock);
void forget_refused(int32_t call_id, int32_t thread_index, int32_t profile) QV_REQUIRES(table_lock);

// A place for a connection that leaves its slot. Made before the lock is taken; null when there is no memory.
struct Departed;
class Departure {
  public:
    Departure();
    ~Departure();
    Departure(const Departure&) = delete;
    Departure& operator=(const Departure&) = delete;
    bool possible() const { return place_ != nullptr; }
    // Empties the slot. `until`: where its id was given to the next one.
    void leave(const Call& call, Position until) QV_REQUIRES(table_lock);

  private:
    Departed* place_;
};

// Kills that the server has been asked for, and the connections that they were meant for.
void note_kill(int32_t profile, CallKey call) QV_REQUIRES(table_lock);
// Kills of uses that began before were not meant for what is left of the call. Whether others were.
bool forget_killed(const Call& call, Position at) QV_REQUIRES(table_lock);
// The connection of a kill that has been answered. False when no kill of the profile was asked for.
bool take_kill(int32_t profile, CallKey& call) QV_REQUIRES(table_lock);

// The thread, by its index, that is being told something of a call right now, by whoever holds the
// application mutex; -1: none. The end of the server does not overtake that.
inline constinit int32_t being_told QV_GUARDED_BY(table_lock) = -1;

// Everything that the end of the server ends, taken out in one step. Told afterwards, without a lock.
class Farewell {
  public:
    Farewell();
    ~Farewell();
    Farewell(const Farewell&) = delete;
    Farewell& operator=(const Farewell&) = delete;

    // False when there was nothing to take.
    bool take_out() QV_REQUIRES(table_lock);
    // Goes on to the next call: its id, or -1.
    int32_t next_call() QV_REQUIRES(table_lock);
    struct Recipient {
        NetCMEventCallback callback;
        int32_t profile;
    };
    // The call's next user, who counts as told from then on.
    bool next_user(Recipient& to) QV_REQUIRES(table_lock);
    // Whether that one is being told something else right now.
    bool next_is_being_told() const QV_REQUIRES(table_lock);

    // Whether any farewell has still to be told to the thread with that kernel id; if so, its index.
    static bool waits_for(int32_t tid, int32_t& thread_index) QV_REQUIRES(table_lock);
    // In the only thread of a forked process nobody is told of what the parent has lost.
    static void forget_all();

  private:
    bool is_to_tell(int32_t tid, int32_t& thread_index) const QV_REQUIRES(table_lock);

    Farewell* next_farewell_ = nullptr;
    NetCMCallInfo calls_[NETCM_MAX_CALLS];
    int count_ = 0;
    int taken_ = 0;
    Departed* departed_ = nullptr;
    Departed* told_ = nullptr;
    const NetCMCallInfo* call_ = nullptr;
    int32_t cursor_ = 0;
};

}  // namespace quorvel
