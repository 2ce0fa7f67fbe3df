#include "Uses.h"

#include <algorithm>

#include "quorvel/NetCM.h"

namespace quorvel::lives {
namespace {

bool contains(const std::vector<int>& all, int one) {
    return std::find(all.begin(), all.end(), one) != all.end();
}

void add(std::vector<int>& all, int one) {
    if (!contains(all, one))
        all.push_back(one);
}

std::string text_of(const std::vector<int>& serials) {
    std::string text;
    for (const int serial : serials)
        text += (text.empty() ? "" : " or ") + std::to_string(serial);
    return text.empty() ? "no connection" : "connection " + text;
}

}  // namespace

void Uses::for_each(const std::function<void(int, int32_t, const Use&)>& body) const {
    for (int user = 0; user < kUsers; ++user)
        for (int32_t profile = 1; profile <= kProfiles; ++profile)
            if (const Use* use = find(user, profile))
                body(user, profile, *use);
}

const Use* Uses::find(int user, int32_t profile) const {
    if (user >= kUsers || profile < 1 || profile > kProfiles)
        return nullptr;
    const Slot& slot = at(user, profile);
    return slot.use ? &*slot.use : nullptr;
}

Use* Uses::find(int user, int32_t profile) {
    return const_cast<Use*>(std::as_const(*this).find(user, profile));
}

void Uses::opens(int user, int32_t profile) {
    Use use{.number = ++count_};
    const int current = truth_.current(profile);
    if (!truth_.is_finished(current))
        use.serials.push_back(current);
    at(user, profile).opening = use;
}

void Uses::starts(int32_t profile, int serial) {
    for (int user = 0; user < kUsers; ++user)
        if (auto& opening = at(user, profile).opening)
            add(opening->serials, serial);
}

std::string Uses::opened(int user, int32_t profile, std::optional<int> exact) {
    Slot& slot = at(user, profile);
    Use use = *slot.opening;
    slot.opening.reset();
    if (use.ended)
        return "";
    use.perhaps_gone |= use.perhaps_ended;
    if (slot.use && !slot.use->perhaps_gone)
        return "accepted an open of a profile that the thread has open";
    if (exact) {
        if (!contains(use.serials, *exact))
            return "told of " + text_of(use.serials) + " about an open that was given " + text_of({*exact});
        use.serials = {*exact};
    }
    if (use.serials.empty())
        return "accepted an open for which the server has no connection";
    slot.use = use;
    return "";
}

std::string Uses::not_opened(int user, int32_t profile) {
    Slot& slot = at(user, profile);
    const bool touched = slot.opening->touched;
    slot.opening.reset();
    return touched ? "told something about an open that was not accepted" : "";
}

bool Uses::has_any(int user) const {
    for (int32_t profile = 1; profile <= kProfiles; ++profile)
        if (find(user, profile) != nullptr)
            return true;
    return false;
}

bool Uses::is_anybody_closing(int32_t profile) const {
    for (int user = 0; user < kUsers; ++user)
        if (const Use* use = find(user, profile); use != nullptr && (use->closing || use->left_closing))
            return true;
    return false;
}

bool Uses::is_certainly_held(int32_t profile, int serial) const {
    for (int user = 0; user < kUsers; ++user) {
        const Use* use = find(user, profile);
        if (use != nullptr && !use->closing && !use->perhaps_gone && use->serials == std::vector{serial})
            return true;
    }
    return false;
}

std::vector<uint64_t> Uses::up(int32_t profile) const {
    std::vector<uint64_t> numbers;
    for (int user = 0; user < kUsers; ++user)
        if (const Use* use = find(user, profile);
            use != nullptr && use->answered && !use->perhaps_gone && !is_lost(*use))
            numbers.push_back(use->number);
    return numbers;
}

std::vector<uint64_t> Uses::held() const {
    std::vector<uint64_t> numbers;
    for_each([&](int, int32_t, const Use& use) {
        if (!use.perhaps_gone)
            numbers.push_back(use.number);
    });
    return numbers;
}

bool Uses::is_still_there(uint64_t number) const {
    bool found = false;
    for_each([&](int, int32_t, const Use& use) { found |= use.number == number && !use.perhaps_gone; });
    return found;
}

int Uses::owner(uint64_t number) const {
    int owner = -1;
    for_each([&](int user, int32_t, const Use& use) { owner = use.number == number ? user : owner; });
    return owner;
}

bool Uses::is_beside_an_end(int32_t profile) const {
    for (const int serial : serials(profile))
        if (const Connection* connection = truth_.find(serial))
            for (const Connection& other : truth_.connections())
                if (other.link == connection->link && other.id == connection->id && other.serial <= serial &&
                    !other.live() && !truth_.is_finished(other.serial) &&
                    (other.serial == serial || truth_.has_ended_by_itself(other.serial)))
                    return true;
    return false;
}

std::vector<int> Uses::serials(int32_t profile) const {
    std::vector<int> serials;
    for (int user = 0; user < kUsers; ++user) {
        const Slot& slot = at(user, profile);
        for (const std::optional<Use>* use : {&slot.use, &slot.opening})
            if (*use)
                for (const int serial : (*use)->serials)
                    add(serials, serial);
    }
    const int current = truth_.current(profile);
    if (!truth_.is_finished(current))
        add(serials, current);
    return serials;
}

bool Uses::is_waiting(int user) const {
    for (int32_t profile = 1; profile <= kProfiles; ++profile)
        if (const Use* use = find(user, profile);
            use != nullptr && !use->perhaps_gone && (!use->answered || use->closing))
            return true;
    return false;
}

// Whether the event can be one about a use of this connection.
bool Uses::fits(const Use& use, const Connection& connection, const Heard& heard) const {
    const auto profile = static_cast<size_t>(heard.profile);
    const bool is_of_it = heard.address && heard.address->serial == connection.serial &&
                          heard.address->change <= connection.changes;
    switch (heard.type) {
        case NETCM_EVENT_OPEN_RSP: {
            if (heard.result != 0)
                return !use.answered && truth_.has_pushed_about(connection.serial, Pushed::What::Refusal,
                                                                heard.result, heard.reason);
            // A profile that comes to a call which another one has brought up is answered with the server's
            // own response; who joins it before that comes was answered at once, and is answered again.
            const bool came_later = connection.first_up != heard.profile || connection.starts[profile] > 1;
            const int most = came_later ? 1 + connection.ups[profile] : 1;
            return is_of_it && connection.told_up && use.answers < most;
        }
        case NETCM_EVENT_CLOSE_RSP:
            return use.closing && (heard.result == 0 || truth_.has_pushed(Pushed::What::Stop, heard.profile,
                                                                          heard.result, heard.reason));
        case NETCM_EVENT_STOP_IND:
            if (heard.result == kStatusServerGone)
                return truth_.is_dead(connection.link);
            // A kill that a dead server has answered was perhaps meant for what it has not told of.
            if (heard.result == kStatusKilled && (connection.killed || truth_.is_dead(connection.link)))
                return true;
            return truth_.has_pushed_about(connection.serial, Pushed::What::End, heard.result, heard.reason);
        case NETCM_EVENT_SUSPEND_IND:
            return use.suspends < connection.suspends;
        case NETCM_EVENT_RESUME_IND:
            return use.resumes < connection.resumes && use.resumes < use.suspends + 1;
        case NETCM_EVENT_IP_CHANGE_IND:
            return is_of_it && heard.address->change > 0;
        default:
            return false;
    }
}

std::string Uses::objection(const Use& use, const Heard& heard) const {
    for (const int serial : use.serials)
        if (const Connection* connection = truth_.find(serial); connection != nullptr)
            if (fits(use, *connection, heard))
                return "";
    return "the use of " + text_of(use.serials) + (use.answered ? ", answered" : ", not answered") +
           (use.closing ? ", closing" : "") + ", cannot be told this";
}

void Uses::apply(std::optional<Use>& use, const Heard& heard, bool is_opening) {
    std::erase_if(use->serials, [&](int serial) {
        const Connection* connection = truth_.find(serial);
        return connection == nullptr || !fits(*use, *connection, heard);
    });
    use->touched = true;
    bool is_end = heard.type == NETCM_EVENT_CLOSE_RSP || heard.type == NETCM_EVENT_STOP_IND;
    switch (heard.type) {
        case NETCM_EVENT_OPEN_RSP:
            use->answered = true;
            ++use->answers;
            is_end = heard.result != 0;
            break;
        case NETCM_EVENT_SUSPEND_IND:
            ++use->suspends;
            break;
        case NETCM_EVENT_RESUME_IND:
            ++use->resumes;
            break;
        default:
            break;
    }
    if (!is_end)
        return;
    if (is_opening)
        use->ended = true;
    else
        use.reset();
}

std::string Uses::hear(int user, const Heard& heard) {
    if (heard.profile < 1 || heard.profile > kProfiles)
        return "there is no such profile";
    Slot& slot = at(user, heard.profile);
    std::string why;
    for (std::optional<Use>* use : {&slot.use, &slot.opening}) {
        if (!*use || (*use)->ended)
            continue;
        const std::string wrong = objection(**use, heard);
        if (wrong.empty()) {
            if (use == &slot.use && (*use)->perhaps_gone && slot.opening &&
                objection(*slot.opening, heard).empty())
                slot.opening->perhaps_ended = true;
            apply(*use, heard, use == &slot.opening);
            return "";
        }
        why += (why.empty() ? "" : "; ") + wrong;
    }
    return why.empty() ? "the thread does not hold the profile" : why;
}

void Uses::suspends(int serial) {
    for (auto& of_user : slots_)
        for (Slot& slot : of_user)
            if (slot.use && slot.use->answered && slot.use->serials == std::vector{serial})
                ++slot.use->suspends_owed;
}

// Whether every connection that it may be on was lost with its link.
bool Uses::is_lost(const Use& use) const {
    return std::all_of(use.serials.begin(), use.serials.end(), [&](int serial) {
        const Connection* connection = truth_.find(serial);
        return connection == nullptr || truth_.is_dead(connection->link);
    });
}

// Whether every connection that it may be on has ended.
bool Uses::is_over(const Use& use) const {
    return std::none_of(use.serials.begin(), use.serials.end(), [&](int serial) {
        const Connection* connection = truth_.find(serial);
        return connection != nullptr && connection->live() && !truth_.is_dead(connection->link);
    });
}

void Uses::add_owed(std::vector<std::string>& owed) const {
    for_each([&](int user, int32_t profile, const Use& use) {
        if (use.perhaps_gone)
            return;
        const std::string whose = "user" + std::to_string(user) + "'s use of profile " +
                                  std::to_string(profile) + " on " + text_of(use.serials);
        if (use.closing)
            owed.push_back(whose + ": its close is not answered");
        else if (!use.answered)
            owed.push_back(whose + ": its open is not answered");
        else if (is_over(use))
            owed.push_back(whose + ": the connection has ended, and it is not told");
        else if (use.suspends < use.suspends_owed)
            owed.push_back(whose + ": it is not told of a suspension");
    });
}

}  // namespace quorvel::lives
