// What each thread of a life may be told, and what it must be told in the end.
//
// The threads say what they do and what came of it, their callbacks what they hear, and the server what it
// does; each of them before anybody else can see it. What fits into no order of these is objected to.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "History.h"
#include "Ledger.h"
#include "Op.h"
#include "Pending.h"
#include "Registrations.h"
#include "Troubles.h"
#include "Truth.h"
#include "Uses.h"
#include "quorvel/NetCM.h"

namespace quorvel::lives {

class Model {
  public:
    Model(Troubles troubles, uint32_t first_ticket);

    // ---- What came of a call.
    void registered(Op& op, uint32_t result);
    void deregistered(Op& op, uint32_t result);
    void opened(Op& op, uint32_t result);
    void closed(Op& op, uint32_t result);
    void killed(Op& op, uint32_t result);
    void cleaned_up(Op& op, uint32_t result);
    void looked_up(Op& op, uint32_t result, const NetCMConnInfo& info);
    void transport_error(Op& op, uint32_t result, int32_t error);
    void tunnelled(Op& op, uint32_t result, uint32_t id);
    void asked_proper_profile(Op& op, uint32_t result);
    // Of a request that is one exchange. A success brings back the ticket, where the answer has room for one.
    void exchanged(Op& op, uint32_t result, const Asked& asked, std::optional<uint32_t> ticket = {});
    // For the two that need a call of the process.
    void exchanged_for_call(Op& op, uint32_t result, const Asked& asked, std::optional<uint32_t> ticket = {});
    // For lists, which give NETCM_ERR_NOT_ACTIVE when they are empty.
    void listed(Op& op, uint32_t result, const Asked& asked, uint32_t count, uint32_t ticket);
    // For those that answer with a truth value.
    void agreed(Op& op, bool yes, const Asked& asked);

    // ---- What a callback hears, and when it returns: until then, the library still has what the event is
    // the end of.
    void hear(int user, const NetCMEvent& event);
    void has_heard(int user, const NetCMEvent& event);

    // ---- What a user wants to know of itself.
    bool is_registered(int user) const;
    std::vector<int32_t> held_profiles(int user) const;
    // Whether an open or close of it is not answered yet.
    bool is_waiting_for(int user, int32_t profile) const;
    // Until none of its opens and closes is unanswered, or for so long. Whether none is.
    bool wait_for_answers(int user, std::chrono::microseconds patience);
    // One open of the default profile at a time: false when another is under way.
    bool take_default_open() { return !default_open_.test_and_set(); }
    void give_default_open() { default_open_.clear(); }
    // The lower half of a ticket is all that some answers have room for.
    uint32_t ticket_with(uint16_t lower_half) const;

    // ---- What the server does. Its own thread alone looks at the truth.
    const Truth& truth() const { return truth_; }
    int link_begins();
    void client_closes(int link);
    void dies();
    void is_back();
    // On this connection, or on a new one with this id.
    const Connection& starts(int32_t profile, int serial, uint32_t free_id);
    void refuses_start(int32_t profile, int32_t reason);
    void names_default_profile(int32_t profile);
    void lists(const std::vector<int32_t>& profiles);
    void changes(int serial, Connection::State state, const char* why);
    void is_killed(int serial);
    // Another record about its end is to be pushed.
    void has_end_to_push(int serial);
    // Another address; which.
    int changes_address(int serial);
    void pushes(const Pushed& pushed);
    uint32_t gives_ticket(const Asked& asked);
    void gives_tunnel(uint32_t id);
    uint32_t next_broadcast();
    bool is_finished(int serial) const;
    bool is_certainly_held(int32_t profile, int serial) const;

    // ---- The life as a whole.
    bool has(Troubles trouble) const { return (troubles_ & trouble) != 0; }
    // The first profile of those that share an access point with this one, and the last.
    int32_t first_sharing(int32_t profile) const { return has(kSharing) && profile <= 2 ? 1 : profile; }
    int32_t last_sharing(int32_t profile) const { return has(kSharing) && profile <= 2 ? 2 : profile; }
    bool has_everybody_left() const;
    // Until everything promised is kept, or for so long; what is still owed then.
    std::vector<std::string> wait_until_nothing_is_owed(std::chrono::milliseconds patience);
    // The call that lasts longer than this, if there is one.
    std::optional<std::string> call_longer_than(std::chrono::seconds limit) const;
    void note(int who, const char* text);
    [[noreturn]] void object(const std::string& why) const;
    const History& history() const { return history_; }

  private:
    friend class Op;
    using Lock = std::unique_lock<std::mutex>;

    void begin(Op& op);
    void end(Op& op);
    void begin_open(Op& op, int32_t profile);
    void note_closing();
    bool is_being_ended(int32_t profile) const;
    bool is_surely_there(uint64_t use) const;
    void begin_close(Op& op);
    void begin_kill(Op& op, int user, int32_t profile);
    void kill_accepted(const Op& op, int32_t profile);

    // Notes the result, and objects to what no call of the kind may give. Whether that was all there is to
    // it: the result is one that the link, or the registration, is the reason for.
    bool is_settled(Op& op, uint32_t result);
    // Whether a request may have been the lost link's, and is forgotten with it.
    bool may_be_lost(const Op& op) const { return op.broken || op.link != truth_.link(); }
    void reject(const Op& op, uint32_t result, const std::string& why = "") const;
    bool is_refusal(const Op& op, uint32_t result, Asked asked);
    bool judge_exchange(Op& op, uint32_t result, const Asked& asked, std::optional<uint32_t> ticket);
    std::vector<std::string> owed() const;

    // Whether a callback hears something of the kind at this moment.
    struct Hearing {
        int user;
        uint32_t type;
        int32_t profile;
    };
    size_t count_hearing(const std::function<bool(const Hearing&)>& which) const;
    bool hears_end(int user, int32_t first_profile, int32_t last_profile) const;
    std::string hear_open_etc(int user, const NetCMEvent& event);
    std::string hear_kill(int user, const NetCMEvent& event);
    std::string hear_tunnel(int user, const NetCMEvent& event);
    std::string hear_broadcast(int user, uint32_t number, bool tunnel);
    std::string hear_proper_profile(int user, const NetCMEvent& event);

    const Troubles troubles_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    History history_;
    Ledger ledger_;
    Truth truth_;
    Registrations registrations_;
    Uses uses_;
    Places kills_;
    Places proper_;
    Tunnels tunnels_;
    Broadcasts broadcasts_;
    std::vector<Op*> ops_;
    std::vector<Hearing> hearing_;
    bool away_ = false;
    std::atomic_flag default_open_;
    // What each user's transport error may be; empty: anything.
    std::array<std::vector<int32_t>, kUsers> errors_;
};

}  // namespace quorvel::lives
