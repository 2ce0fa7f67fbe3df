#include "call_users.h"

namespace quorvel::cm {

std::span<const int32_t> CallUsers::of(uint32_t client) const {
    const auto found = clients_.find(client);
    return found == clients_.end() ? std::span<const int32_t>() : found->second.order;
}

void CallUsers::add(uint32_t client, const Profile& profile) {
    Opened& opened = clients_[client];
    if (!opened.ids.insert(profile.id).second)
        return;
    opened.order.push_back(profile.id);
    ++size_;
    const auto [place, added] = places_.try_emplace(profile.id, last_place_ + 1);
    if (added)
        profiles_[++last_place_].profile = profile;
    ++profiles_[place->second].users;
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
