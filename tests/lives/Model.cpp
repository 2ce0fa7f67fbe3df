#include "Model.h"

#include <algorithm>

#include "Report.h"

namespace quorvel::lives {

// ---- Op

Op::Op(Model& of, int of_user, Kind of_kind, const char* of_name, int32_t of_argument, Needs of_needs)
    : model(of), user(of_user), kind(of_kind), name(of_name), argument(of_argument), needs(of_needs) {
    model.begin(*this);
}

Op::~Op() {
    if (!over)
        model.object(std::string(name) + " was not judged");
}

// ---- Model

Model::Model(Troubles troubles, uint32_t first_ticket)
    : troubles_(troubles),
      ledger_(first_ticket),
      uses_(truth_),
      kills_("the kill of profile", NETCM_MAX_KILLS, true),
      proper_("the question for the proper profile of application", NETCM_MAX_PROPER_PROFILES, false) {}

void Model::object(const std::string& why) const {
    report::fail(why);
}

void Model::note(int who, const char* text) {
    const Lock lock(mutex_);
    history_.note(who, "%s", text);
}

// ---- The beginning and the end of a call

void Model::begin(Op& op) {
    const Lock lock(mutex_);
    op.begun = history_.note(op.user, "%s(%d)", op.name, op.argument);
    op.profile = op.argument;
    op.was_registered = registrations_.is_in(op.user);
    op.most = registrations_.most();
    op.anybody = op.most > 0;
    op.instances = registrations_.instances();
    op.link = truth_.link();
    op.broken = truth_.is_broken();
    op.away = away_;
    switch (op.kind) {
        case Kind::Register:
            registrations_.arrives(op.user);
            for (Op* other : ops_) {
                other->anybody = true;
                ++other->most;
            }
            break;
        case Kind::Deregister:
            if (op.user >= kUsers)
                break;
            op.had_use = uses_.has_any(op.user) || hears_end(kNobody, 1, kProfiles);
            registrations_.leaves(op.user);
            broadcasts_.release(op.user);
            break;
        case Kind::Open:
            begin_open(op, op.profile);
            break;
        case Kind::Close:
            begin_close(op);
            break;
        case Kind::Kill:
            op.had_kill = kills_.has(op.user, op.profile) ||
                          0 != count_hearing([&](const Hearing& one) {
                              return one.type == NETCM_EVENT_KILL_RSP && one.user == op.user;
                          });
            // Who is being answered has his place until he has heard it.
            if (count_hearing([](const Hearing& one) { return one.type == NETCM_EVENT_KILL_RSP; }) != 0)
                kills_.mix();
            if (op.user < kUsers)
                op.place = kills_.take(op.user, op.profile, registrations_.instance(op.user));
            begin_kill(op, op.user, op.profile);
            break;
        case Kind::Cleanup:
            kills_.mix();
            break;
        case Kind::Lookup:
            op.saw_closing = is_being_ended(op.profile);
            op.serials = uses_.serials(op.profile);
            op.up = uses_.up(op.profile);
            break;
        case Kind::Tunnel:
            op.places = tunnels_.pending() + 1 + hearing_.size();
            for (const Op* other : ops_)
                op.places += other->kind == Kind::Tunnel ? 1 : 0;
            for (Op* other : ops_)
                other->places += other->kind == Kind::Tunnel ? 1 : 0;
            break;
        case Kind::Proper:
            if (count_hearing(
                    [](const Hearing& one) { return one.type == NETCM_EVENT_PROPER_PROFILE_RSP; }) != 0)
                proper_.mix();
            op.place =
                proper_.take(op.user, op.argument, op.user < kUsers ? registrations_.instance(op.user) : 0);
            break;
        case Kind::Exchange:
            op.held = uses_.held();
            break;
    }
    ops_.push_back(&op);
}

void Model::begin_open(Op& op, int32_t profile) {
    if (op.user >= kUsers || profile < 1 || profile > kProfiles)
        return;
    op.opening = true;
    op.profile = profile;
    op.had_use = uses_.find(op.user, profile) != nullptr ||
                 hears_end(kNobody, first_sharing(profile), last_sharing(profile));
    op.saw_closing |= is_being_ended(profile);
    uses_.opens(op.user, profile);
    for (Op* other : ops_) {
        if (other == &op || other->kind != Kind::Open || other->profile != profile)
            continue;
        other->alone = false;
        op.alone = false;
    }
}

// Whether a close or kill that concerns the profile was asked for and has not returned, or is not told of
// yet.
bool Model::is_being_ended(int32_t profile) const {
    const int32_t first = first_sharing(profile);
    const int32_t last = last_sharing(profile);
    const bool is_under_way = std::any_of(ops_.begin(), ops_.end(), [=](const Op* op) {
        return op->kind == Kind::Cleanup ||
               (op->kind == Kind::Kill && op->profile >= first && op->profile <= last);
    });
    if (is_under_way)
        return true;
    // An ended connection is taken for closing when the one that has its id now is closed.
    return (has(kReuse) && uses_.is_beside_an_end(profile)) || uses_.is_anybody_closing(profile) ||
           kills_.has_any(first, last) || hears_end(kNobody, first, last);
}

// What ends, or is given the id of what has ended, while somebody is opening.
void Model::note_closing() {
    for (Op* op : ops_)
        if (op->kind == Kind::Open && has(kReuse))
            op->saw_closing |= uses_.is_beside_an_end(op->profile);
}

// Who is killing a profile may have lost his own use of it already.
bool Model::is_surely_there(uint64_t use) const {
    const int owner = uses_.owner(use);
    return uses_.is_still_there(use) && std::none_of(ops_.begin(), ops_.end(), [=](const Op* op) {
               return op->user == owner && (op->kind == Kind::Kill || op->kind == Kind::Cleanup);
           });
}

void Model::begin_close(Op& op) {
    Use* use = uses_.find(op.user, op.profile);
    // The library has an ended call until its last user has been told.
    op.saw_closing = hears_end(kNobody, first_sharing(op.profile), last_sharing(op.profile));
    op.had_use = use != nullptr || op.saw_closing;
    if (use == nullptr)
        return;
    op.use = use->number;
    op.was_closing = use->closing;
    use->closing = true;
    for (Op* other : ops_)
        if ((other->kind == Kind::Open || other->kind == Kind::Kill || other->kind == Kind::Lookup) &&
            first_sharing(other->profile) == first_sharing(op.profile))
            other->saw_closing = true;
}

// Also for each kill of a clean-up, which is one call with several of them.
void Model::begin_kill(Op& op, int user, int32_t profile) {
    const size_t answered =
        count_hearing([](const Hearing& one) { return one.type == NETCM_EVENT_KILL_RSP; });
    for (int32_t sharing = first_sharing(profile); sharing <= last_sharing(profile); ++sharing)
        op.saw_closing |= uses_.is_anybody_closing(sharing) || hears_end(kNobody, sharing, sharing);
    // What has lost its slot to the next connection cannot be killed again.
    op.saw_closing |= has(kReuse) && kills_.has_any(first_sharing(profile), last_sharing(profile));
    op.saw_other_kill |= kills_.has_another(user, profile) || answered != 0;
    op.places = std::max(op.places, kills_.count() + answered);
    for (Op* other : ops_) {
        if (other == &op)
            continue;
        if ((other->kind == Kind::Open || other->kind == Kind::Lookup) &&
            other->profile >= first_sharing(profile) && other->profile <= last_sharing(profile))
            other->saw_closing = true;
        if (other->kind == Kind::Kill || other->kind == Kind::Cleanup) {
            other->saw_other_kill |= other->profile == profile;
            other->places = std::max(other->places, kills_.count());
        }
    }
}

void Model::end(Op& op) {
    op.over = true;
    std::erase(ops_, &op);
    changed_.notify_all();
}

// ---- What every call may give

void Model::reject(const Op& op, uint32_t result, const std::string& why) const {
    object("user" + std::to_string(op.user) + ": " + op.name + "(" + std::to_string(op.argument) +
           ") = " + std::to_string(result) + (why.empty() ? "" : ": " + why));
}

bool Model::is_settled(Op& op, uint32_t result) {
    history_.note(op.user, "%s(%d) = %u", op.name, op.argument, result);
    const bool of_thread = op.needs == Needs::Thread;
    if (result == NETCM_ERR_NOT_REGISTERED) {
        if (of_thread ? op.was_registered : registrations_.was_somebody_always_in(op.instances))
            reject(op, result, "but it is registered");
        return true;
    }
    if (of_thread ? !op.was_registered : !op.anybody)
        reject(op, result, "but it is not registered");
    if (result == NETCM_ERR_FAILURE)
        return op.broken || has(kSignals);
    if (result == NETCM_ERR_REREGISTER_FAILED)
        // A signal may interrupt the setting up of each new link, too.
        return op.away || ((may_be_lost(op) || truth_.is_left()) && has(kSignals));
    return false;
}

bool Model::is_refusal(const Op& op, uint32_t result, Asked asked) {
    asked.refused = true;
    return ledger_.take(result, asked, op.begun);
}

// ---- The life as a whole

bool Model::has_everybody_left() const {
    const Lock lock(mutex_);
    return registrations_.most() == 0;
}

std::vector<std::string> Model::owed() const {
    std::vector<std::string> owed;
    uses_.add_owed(owed);
    if (truth_.is_broken())
        return owed;
    kills_.add_owed(registrations_, owed);
    proper_.add_owed(registrations_, owed);
    tunnels_.add_owed(registrations_, owed);
    broadcasts_.add_owed(owed);
    return owed;
}

std::vector<std::string> Model::wait_until_nothing_is_owed(std::chrono::milliseconds patience) {
    Lock lock(mutex_);
    changed_.wait_for(lock, patience, [this] { return owed().empty(); });
    return owed();
}

std::optional<std::string> Model::call_longer_than(std::chrono::seconds limit) const {
    const Lock lock(mutex_);
    const auto now = std::chrono::steady_clock::now();
    for (const Op* op : ops_)
        if (now - op->since > limit)
            return "user" + std::to_string(op->user) + ": " + op->name + "(" + std::to_string(op->argument) +
                   ") does not return";
    return std::nullopt;
}

// ---- What a user wants to know of itself

bool Model::is_registered(int user) const {
    const Lock lock(mutex_);
    return registrations_.is_in(user);
}

std::vector<int32_t> Model::held_profiles(int user) const {
    const Lock lock(mutex_);
    std::vector<int32_t> profiles;
    for (int32_t profile = 1; profile <= kProfiles; ++profile)
        if (uses_.find(user, profile) != nullptr)
            profiles.push_back(profile);
    return profiles;
}

bool Model::is_waiting_for(int user, int32_t profile) const {
    const Lock lock(mutex_);
    const Use* use = uses_.find(user, profile);
    return use != nullptr && (!use->answered || use->closing);
}

bool Model::wait_for_answers(int user, std::chrono::microseconds patience) {
    Lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return !uses_.is_waiting(user); });
}

uint32_t Model::ticket_with(uint16_t lower_half) const {
    const Lock lock(mutex_);
    return ledger_.with_lower_half(lower_half);
}

}  // namespace quorvel::lives
