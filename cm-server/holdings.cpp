#include "holdings.h"

#include <algorithm>

namespace quorvel::cm {
namespace {

// Not counted, for each connection: a request of the usual size and a few records.
constexpr size_t kLittle = 4096;

size_t counted(size_t bytes) {
    return bytes - std::min(bytes, kLittle);
}

}  // namespace

bool Holdings::Share::grow_to(size_t bytes) {
    const size_t wanted = counted(bytes);
    if (wanted > counted_) {
        const size_t more = wanted - counted_;
        const auto user = holdings_.of_users_.find(user_);
        const size_t of_user = user == holdings_.of_users_.end() ? 0 : user->second;
        if (of_user + more > holdings_.limits_.of_user || holdings_.all_ + more > holdings_.limits_.in_all)
            return false;
    }
    set(bytes);
    return true;
}

void Holdings::Share::set(size_t bytes) {
    const size_t wanted = counted(bytes);
    if (wanted == counted_)
        return;
    size_t& of_user = holdings_.of_users_[user_];
    of_user = of_user - counted_ + wanted;
    holdings_.all_ = holdings_.all_ - counted_ + wanted;
    counted_ = wanted;
    if (of_user == 0)
        holdings_.of_users_.erase(user_);
}

}  // namespace quorvel::cm
