#include "Outbox.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace quorvel::lives {

bool Outbox::has(const std::function<bool(const Pushed&)>& which) const {
    return std::any_of(parcels_.begin(), parcels_.end(),
                       [&](const Parcel& parcel) { return which(parcel.pushed); });
}

Parcel Outbox::take(size_t index) {
    Parcel parcel = std::move(parcels_[index]);
    parcels_.erase(parcels_.begin() + static_cast<std::ptrdiff_t>(index));
    return parcel;
}

Parcel Outbox::take_any(Random& random) {
    std::vector<size_t> possible;
    unsigned before = 0;
    for (size_t index = 0; index < parcels_.size(); ++index) {
        if ((parcels_[index].keys & before) == 0)
            possible.push_back(index);
        before |= parcels_[index].keys;
    }
    return take(possible[static_cast<size_t>(random.below(static_cast<int>(possible.size())))]);
}

}  // namespace quorvel::lives
