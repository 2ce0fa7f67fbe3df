#include "Truth.h"

#include <algorithm>

namespace quorvel::lives {
namespace {

// Over all lives, so that what is left of one cannot be taken for the next one's.
int next_serial = 1;
constexpr int kMostSerials = 1 << 24;

}  // namespace

const Connection* Truth::find(int serial) const {
    if (serial < 1 || connections_.empty() || serial < connections_.front().serial ||
        serial > connections_.back().serial)
        return nullptr;
    return &connections_[static_cast<size_t>(serial - connections_.front().serial)];
}

bool Truth::is_finished(int serial) const {
    const Connection* connection = find(serial);
    if (connection == nullptr || connection->link != link())
        return true;
    // What a dead server has pushed may be lost to the library.
    if (is_broken())
        return false;
    const bool is_told = connection->end_position != 0 && connection->ends_to_push == 0;
    return !connection->live() && is_told && connection->end_position <= handled_;
}

bool Truth::has_ended_by_itself(int serial) const {
    return std::any_of(pushed_.begin(), pushed_.end(), [=](const Pushed& pushed) {
        return pushed.serial == serial &&
               (pushed.what == Pushed::What::End || pushed.what == Pushed::What::Refusal);
    });
}

bool Truth::has_pushed(Pushed::What what, int32_t profile, uint32_t status,
                       std::optional<int32_t> reason) const {
    return std::any_of(pushed_.begin(), pushed_.end(), [&](const Pushed& pushed) {
        return pushed.what == what && pushed.profile == profile && pushed.status == status &&
               (!reason || pushed.reason == static_cast<uint32_t>(*reason));
    });
}

bool Truth::has_pushed_about(int serial, Pushed::What what, uint32_t status,
                             std::optional<int32_t> reason) const {
    return std::any_of(pushed_.begin(), pushed_.end(), [&](const Pushed& pushed) {
        return pushed.what == what && pushed.serial == serial && pushed.status == status &&
               (!reason || pushed.reason == static_cast<uint32_t>(*reason));
    });
}

int Truth::new_link() {
    links_.push_back({});
    pushed_.clear();
    return link();
}

Connection& Truth::new_connection(int32_t profile, uint32_t id) {
    // A life has a few hundred at most: their numbers are in a row.
    if (connections_.empty() && next_serial > kMostSerials - 10000)
        next_serial = 1;
    connections_.push_back({.serial = next_serial++, .link = link(), .id = id, .first = profile});
    return connections_.back();
}

uint64_t Truth::push(const Pushed& pushed) {
    pushed_.push_back(pushed);
    ++positions_;
    if (pushed.serial == 0)
        return positions_;
    Connection& about = change(pushed.serial);
    switch (pushed.what) {
        case Pushed::What::Start:
            if (!about.told_up)
                about.first_up = pushed.profile;
            about.told_up = true;
            ++about.ups[static_cast<size_t>(pushed.profile)];
            about.changes = std::max(about.changes, pushed.change);
            break;
        case Pushed::What::Change:
            about.changes = pushed.change;
            break;
        case Pushed::What::Suspend:
            ++about.suspends;
            break;
        case Pushed::What::Resume:
            ++about.resumes;
            break;
        default:
            --about.ends_to_push;
            about.end_position = positions_;
    }
    return positions_;
}

}  // namespace quorvel::lives
