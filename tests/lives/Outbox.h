// What the server has to push. It may be late, and overtake what it has nothing to do with; but what is about
// one call id or one profile stays in its order.
#pragma once

#include <deque>
#include <functional>
#include <optional>

#include "Random.h"
#include "Truth.h"
#include "support/Answer.h"

namespace quorvel::lives {

struct Parcel {
    Pushed pushed;
    test::Bytes bytes;
    unsigned keys;  // parcels that have one in common stay in order
};

constexpr unsigned key_of_id(uint32_t id) {
    return 1u << id;
}
constexpr unsigned key_of_profile(int32_t profile) {
    return 1u << (kCallIds + static_cast<uint32_t>(profile));
}

class Outbox {
  public:
    void put(Parcel parcel) { parcels_.push_back(std::move(parcel)); }
    size_t size() const { return parcels_.size(); }
    bool empty() const { return parcels_.empty(); }
    void clear() { parcels_.clear(); }
    bool has(const std::function<bool(const Pushed&)>& which) const;

    Parcel take_first() { return take(0); }
    // Any that may be next.
    Parcel take_any(Random& random);

  private:
    Parcel take(size_t index);

    std::deque<Parcel> parcels_;
};

}  // namespace quorvel::lives
