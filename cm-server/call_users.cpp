#include "call_users.h"

namespace quorvel::cm {

std::span<const int32_t> CallUsers::of(uint32_t client) const {
    const auto found = clients_.find(client);
    return found == clients_.end() ? std::span<const int32_t>() : found->second.order;
}

void CallUsers::add(uint32_t client, const Profile& profile) {
    Opened& opened = clients_[client];
    if (opened.ids.contains(profile.id))
        return;
    try {
        opened.ids.insert(profile.id);
        opened.order.push_back(profile.id);
        const auto [place, added] = places_.try_emplace(profile.id, last_place_ + 1);
        Held& held = profiles_[place->second];
        if (added) {
            held.profile = profile;
            ++last_place_;
        }
        ++held.users;
    } catch (...) {
        undo(client, profile.id);
        throw;
    }
    ++size_;
}

void CallUsers::undo(uint32_t client, int32_t profile) noexcept {
    const auto opened = clients_.find(client);
    opened->second.ids.erase(profile);
    std::erase(opened->second.order, profile);
    if (opened->second.order.empty())
        clients_.erase(opened);
    const auto place = places_.find(profile);
    if (place == places_.end())
        return;
    const auto held = profiles_.find(place->second);
    if (held != profiles_.end() && held->second.users > 0)
        return;
    if (held != profiles_.end())
        profiles_.erase(held);
    places_.erase(place);
}

bool CallUsers::remove(uint32_t client) {
    const auto found = clients_.find(client);
    if (found == clients_.end())
        return false;
    for (const int32_t id : found->second.order) {
        const auto place = places_.find(id);
        const auto held = profiles_.find(place->second);
        if (--held->second.users > 0)
            continue;
        profiles_.erase(held);
        places_.erase(place);
    }
    size_ -= found->second.order.size();
    clients_.erase(found);
    return true;
}

}  // namespace quorvel::cm
