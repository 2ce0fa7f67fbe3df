#include "Pending.h"

#include <algorithm>

namespace quorvel::lives {

// ---- Places

uint64_t Places::take(int user, int32_t key, unsigned instance) {
    for (const Place& place : places_)
        mixed_ |= place.key != key;
    places_.push_back({++count_, user, key, instance, false, false});
    mixed_ |= places_.size() > room_;
    return count_;
}

void Places::keep(uint64_t number, bool only_perhaps) {
    const auto found = std::find_if(places_.begin(), places_.end(),
                                    [&](const Place& place) { return place.number == number; });
    if (found == places_.end())
        return;
    found->kept = true;
    found->perhaps = only_perhaps || found->perhaps_told;
    if (found->perhaps || !once_)
        return;
    const Place kept = *found;
    std::erase_if(places_, [&](const Place& place) {
        return place.number != kept.number && place.user == kept.user && place.key == kept.key;
    });
}

void Places::give_back(uint64_t number) {
    std::erase_if(places_, [&](const Place& place) { return place.number == number; });
}

bool Places::tell(int user, int32_t key, unsigned instance) {
    const auto tell_one_of = [&](std::vector<Place>& places, auto which) {
        const auto found = std::find_if(places.begin(), places.end(), [&](const Place& place) {
            return place.user == user && place.key == key && which(place);
        });
        if (found == places.end())
            return false;
        told_.insert(found->number);
        places.erase(found);
        return true;
    };
    // An old one may have been freed without a word: its thread had left, or its link was lost. Then what is
    // under way now has been answered.
    const auto is_old_or_new = [&](std::vector<Place>& old, auto which) {
        if (!tell_one_of(old, which))
            return false;
        for (Place& place : places_)
            place.perhaps_told |= place.user == user && place.key == key;
        return true;
    };
    return tell_one_of(places_,
                       [=](const Place& place) { return place.kept && place.instance == instance; }) ||
           is_old_or_new(places_, [](const Place& place) { return place.kept; }) ||
           is_old_or_new(lost_, [](const Place&) { return true; }) ||
           tell_one_of(places_, [=](const Place& place) { return place.instance == instance; }) ||
           tell_one_of(places_, [](const Place&) { return true; });
}

bool Places::was_told(uint64_t number) const {
    return told_.contains(number);
}

bool Places::has(int user, int32_t key) const {
    return std::any_of(places_.begin(), places_.end(),
                       [&](const Place& place) { return place.user == user && place.key == key; });
}

bool Places::has_another(int user, int32_t key) const {
    return std::any_of(places_.begin(), places_.end(),
                       [&](const Place& place) { return place.user != user && place.key == key; });
}

bool Places::has_any(int32_t first_key, int32_t last_key) const {
    return std::any_of(places_.begin(), places_.end(),
                       [&](const Place& place) { return place.key >= first_key && place.key <= last_key; });
}

void Places::forget() {
    lost_.clear();
    for (const Place& place : places_)
        if (place.kept)
            lost_.push_back(place);
    // Those under way may be for the new table.
    std::erase_if(places_, [](const Place& place) { return place.kept; });
    mixed_ = false;
    for (const Place& place : places_)
        mixed_ |= place.key != places_.front().key;
}

void Places::add_owed(const Registrations& registrations, std::vector<std::string>& owed) const {
    if (mixed_)
        return;
    for (const Place& place : places_)
        if (place.kept && !place.perhaps && place.user < kUsers &&
            registrations.instance(place.user) == place.instance)
            owed.push_back("user" + std::to_string(place.user) + " is not answered to " + what_ + " " +
                           std::to_string(place.key));
}

// ---- Tunnels

std::string Tunnels::accepted(uint32_t id, int user, unsigned instance) {
    const auto found = requests_.find(id);
    // The link may have been lost since.
    if (found == requests_.end())
        return "";
    Request& request = found->second;
    request.owner = user;
    request.instance = instance;
    return request.told < 0 || request.told == user ? "" : "the answer has gone to another thread";
}

std::string Tunnels::hear(uint32_t id, int user, bool is_asking) {
    const auto found = requests_.find(id);
    if (found == requests_.end() || !found->second.answered)
        return "the server has not answered such a request";
    Request& request = found->second;
    if (request.told >= 0)
        return "the answer was told before";
    if (request.owner >= 0 ? request.owner != user : !is_asking)
        return "the answer is another thread's";
    request.told = user;
    return "";
}

size_t Tunnels::pending() const {
    return static_cast<size_t>(std::count_if(requests_.begin(), requests_.end(), [](const auto& entry) {
        return entry.second.owner >= 0 && entry.second.told < 0;
    }));
}

void Tunnels::add_owed(const Registrations& registrations, std::vector<std::string>& owed) const {
    for (const auto& [id, request] : requests_)
        if (request.owner >= 0 && request.told < 0 &&
            registrations.instance(request.owner) == request.instance)
            owed.push_back("user" + std::to_string(request.owner) + " is not answered to tunnel request " +
                           std::to_string(id));
}

// ---- Broadcasts

void Broadcasts::push(uint32_t number, bool tunnel, uint64_t position, const Registrations& registrations) {
    pushed_[number] = {tunnel, position};
    for (int user = 0; user < kUsers; ++user)
        if (registrations.is_surely_in(user))
            owed_[static_cast<size_t>(user)].insert(number);
}

std::string Broadcasts::hear(uint32_t number, bool tunnel, int user) {
    const auto found = pushed_.find(number);
    if (found == pushed_.end() || found->second.tunnel != tunnel)
        return "the server has not said such a thing";
    if (!told_[static_cast<size_t>(user)].insert(number).second)
        return "told before";
    owed_[static_cast<size_t>(user)].erase(number);
    return "";
}

void Broadcasts::release_all() {
    for (auto& of_user : owed_)
        of_user.clear();
}

void Broadcasts::add_owed(std::vector<std::string>& owed) const {
    for (int user = 0; user < kUsers; ++user)
        for (const uint32_t number : owed_[static_cast<size_t>(user)])
            owed.push_back("user" + std::to_string(user) + " is not told of broadcast " +
                           std::to_string(number));
}

}  // namespace quorvel::lives
