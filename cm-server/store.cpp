#include "store.h"

namespace quorvel::cm {

std::optional<Profile> Store::find(int32_t id) const {
    for (const Profile& profile : config_.profiles)
        if (profile.id == id)
            return profile;
    return std::nullopt;
}

std::optional<int32_t> Store::default_id() const {
    return config_.default_profile;
}

}  // namespace quorvel::cm
