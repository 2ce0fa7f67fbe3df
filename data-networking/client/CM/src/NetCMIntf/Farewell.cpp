// What the end of the server ends.
#include <cstdlib>
#include <utility>

#include "client/CM/src/NetCMIntf/Departed.h"
#include "common/Exported.h"

namespace quorvel {
namespace {

Farewell* farewells QV_GUARDED_BY(table_lock) = nullptr;

constexpr int32_t kPlaces = NETCM_MAX_THREADS * NETCM_MAX_PROFILES;

// The thread index and the profile at a place of a record; -1 for either when nobody stands there.
std::pair<int32_t, int32_t> at_place(const NetCMCallInfo& call, int32_t place) {
    const NetCMThreadProf& entry = call.ThreadProf[place / NETCM_MAX_PROFILES];
    return {entry.ThreadIndex, entry.ProfileId[place % NETCM_MAX_PROFILES]};
}

bool stands_there(const NetCMCallInfo& call, int32_t place, int32_t tid, int32_t& thread_index) {
    const auto [index, profile] = at_place(call, place);
    if (index == -1 || profile == -1 || load(exported::app_info->ThreadInfo[index].ThreadId) != tid)
        return false;
    thread_index = index;
    return true;
}

bool is_user(const NetCMCallInfo& call, int32_t from, int32_t tid, int32_t& thread_index) {
    for (int32_t place = from; place < kPlaces; ++place)
        if (stands_there(call, place, tid, thread_index))
            return true;
    return false;
}

}  // namespace

Farewell::Farewell() {
    const Lock lock(table_lock);
    next_farewell_ = std::exchange(farewells, this);
}

Farewell::~Farewell() {
    {
        const Lock lock(table_lock);
        Farewell** link = &farewells;
        while (*link != nullptr && *link != this)  // not reached: only between two steps
            link = &(*link)->next_farewell_;       // not reached: only between two steps
        if (*link != nullptr)
            *link = next_farewell_;
    }
    while (told_ != nullptr)
        free(std::exchange(told_, told_->next));
}

void Farewell::forget_all() {
    const Lock lock(table_lock);
    for (Farewell* one = farewells; one != nullptr; one = one->next_farewell_) {
        one->count_ = one->taken_ = 0;
        one->departed_ = nullptr;
        one->cursor_ = kPlaces;
    }
    farewells = nullptr;
}

bool Farewell::take_out() {
    count_ = taken_ = 0;
    call_ = nullptr;
    for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index) {
        const Call call = slot(index);
        if (load(call.record->InUse) != 1)
            continue;
        calls_[count_] = *call.record;
        drop_told(calls_[count_++], *call.life);
        clean(call);
    }
    departed_ = take_departed();
    for (Departed* one = departed_; one != nullptr; one = one->next)
        drop_told(one->record, one->life);
    forget_pending_requests();
    return count_ != 0 || departed_ != nullptr;
}

int32_t Farewell::next_call() {
    cursor_ = 0;
    call_ = nullptr;
    if (taken_ < count_) {
        call_ = &calls_[taken_++];
    } else if (departed_ != nullptr) {
        Departed* const one = std::exchange(departed_, departed_->next);
        one->next = std::exchange(told_, one);
        call_ = &one->record;
    }
    return call_ != nullptr ? call_->CallId : -1;
}

bool Farewell::next_user(Recipient& to) {
    for (; cursor_ < kPlaces; ++cursor_) {
        const auto [index, profile] = at_place(*call_, cursor_);
        if (index == -1 || profile == -1)
            continue;
        to = {callback_of(index), profile};
        ++cursor_;
        return true;
    }
    return false;
}

bool Farewell::next_is_being_told() const {
    for (int32_t place = cursor_; being_told != -1 && place < kPlaces; ++place) {
        const auto [index, profile] = at_place(*call_, place);
        if (index != -1 && profile != -1)
            return index == being_told;
    }
    return false;
}

bool Farewell::is_to_tell(int32_t tid, int32_t& thread_index) const {
    if (call_ != nullptr && is_user(*call_, cursor_, tid, thread_index))
        return true;
    for (int i = taken_; i < count_; ++i)
        if (is_user(calls_[i], 0, tid, thread_index))
            return true;
    for (const Departed* one = departed_; one != nullptr; one = one->next)
        if (is_user(one->record, 0, tid, thread_index))
            return true;
    return false;
}

bool Farewell::waits_for(int32_t tid, int32_t& thread_index) {
    for (const Farewell* one = farewells; one != nullptr; one = one->next_farewell_)
        if (one->is_to_tell(tid, thread_index))
            return true;
    return false;
}

}  // namespace quorvel
