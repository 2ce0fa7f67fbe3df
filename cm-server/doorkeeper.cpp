#include "doorkeeper.h"

#include <unistd.h>

#include <algorithm>

namespace quorvel::cm {
namespace {

std::string too_many(uid_t user, const char* what, size_t limit) {
    return "user " + std::to_string(user) + " has " + std::to_string(limit) + " " + what +
           ", as many as one user may have";
}

}  // namespace

bool has_quota(uid_t user) {
    return user != 0 && user != geteuid();
}

Doorkeeper::Use Doorkeeper::of(uid_t user) const {
    const auto found = uses_.find(user);
    return found == uses_.end() ? Use{} : found->second;
}

std::optional<std::string> Doorkeeper::refuses_connection(uid_t user) const {
    if (!has_quota(user))
        return std::nullopt;
    const Use use = of(user);
    if (use.connections >= limits_.connections)
        return too_many(user, "connections", limits_.connections);
    if (use.unregistered >= limits_.unregistered)
        return too_many(user, "connections that have not said who they are", limits_.unregistered);
    return std::nullopt;
}

std::optional<std::string> Doorkeeper::refuses_registration(uid_t user) const {
    if (!has_quota(user) || of(user).registrations < limits_.registrations)
        return std::nullopt;
    return too_many(user, "registrations", limits_.registrations);
}

std::chrono::milliseconds Doorkeeper::time_to_register(uid_t user,
                                                       std::chrono::milliseconds otherwise) const {
    return has_quota(user) ? std::min(otherwise, limits_.unregistered_time) : otherwise;
}

Connection* Doorkeeper::longest_unknown() const {
    return unknown_.empty() ? nullptr : unknown_.begin()->second;
}

void Doorkeeper::enter(Connection& connection) {
    const uid_t user = connection.peer().uid;
    Use& use = uses_[user];
    const uint64_t turn = ++last_turn_;
    unknown_[turn] = &connection;
    try {
        guests_[&connection] = {user, turn, true, false};
    } catch (...) {
        unknown_.erase(turn);
        throw;
    }
    ++use.connections;
    ++use.unregistered;
}

void Doorkeeper::recognise(const Connection& connection, bool registers) {
    const auto found = guests_.find(&connection);
    if (found == guests_.end() || !found->second.unknown)
        return;
    Guest& guest = found->second;
    Use& use = uses_[guest.user];
    guest.unknown = false;
    guest.registered = registers;
    unknown_.erase(guest.turn);
    --use.unregistered;
    use.registrations += registers ? 1 : 0;
}

void Doorkeeper::leave(const Connection& connection) {
    const auto found = guests_.find(&connection);
    if (found == guests_.end())
        return;
    const Guest guest = found->second;
    guests_.erase(found);
    const auto use = uses_.find(guest.user);
    --use->second.connections;
    use->second.registrations -= guest.registered ? 1 : 0;
    if (guest.unknown) {
        unknown_.erase(guest.turn);
        --use->second.unregistered;
    }
    if (use->second.connections == 0)
        uses_.erase(use);
}

}  // namespace quorvel::cm
