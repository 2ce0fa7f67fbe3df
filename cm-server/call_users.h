// Who uses a call, and with which profiles. A client that comes or goes costs what it has opened, however
// many others there are.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "profile.h"

namespace quorvel::cm {

inline constexpr uint32_t kLowestPacketDataState = 1;
inline constexpr uint32_t kHighestPacketDataState = 3;

class CallUsers {
  public:
    bool empty() const { return clients_.empty(); }
    // A client that has opened two profiles counts twice.
    size_t size() const { return size_; }
    bool holds(int32_t profile) const { return places_.contains(profile); }
    // The one among those that are held that was opened first.
    const Profile& first_profile() const { return profiles_.begin()->second.profile; }
    uint32_t first_client() const { return clients_.begin()->first; }
    // Of a profile that is held, as an application has set it; it goes with the last who has the profile
    // open.
    uint32_t& packet_data_state(int32_t profile) {
        return profiles_.at(places_.at(profile)).packet_data_state;
    }
    // What a client has opened, in this order.
    std::span<const int32_t> of(uint32_t client) const;

    // Leaves everything as it was when it throws.
    void add(uint32_t client, const Profile& profile);
    // With all that it has opened; a profile that nobody has open any more goes, too. False when it was none.
    bool remove(uint32_t client);

    // In the order of their opening, for as long as `each` gives true.
    template <class Each>
    void each_profile(Each&& each) const {
        for (const auto& [place, held] : profiles_)
            if (!each(held.profile))
                return;
    }
    // By client, and for each in the order of its opening.
    template <class Each>
    void each(Each&& each) const {
        for (const auto& [client, opened] : clients_)
            for (const int32_t profile : opened.order)
                each(client, profile);
    }
    // Each once, with what it has opened first.
    template <class Each>
    void each_client(Each&& each) const {
        for (const auto& [client, opened] : clients_)
            each(client, opened.order.front());
    }

  private:
    struct Held {
        Profile profile;
        size_t users = 0;
        uint32_t packet_data_state = kLowestPacketDataState;
    };
    struct Opened {
        std::vector<int32_t> order;
        std::unordered_set<int32_t> ids;
    };

    // What has been entered of a profile that the client does not hold yet.
    void undo(uint32_t client, int32_t profile) noexcept;

    uint64_t last_place_ = 0;
    size_t size_ = 0;
    std::map<uint64_t, Held> profiles_;
    std::unordered_map<int32_t, uint64_t> places_;
    std::map<uint32_t, Opened> clients_;
};

}  // namespace quorvel::cm
