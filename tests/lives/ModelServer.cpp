// What the server does, noted before anybody can see it.
#include <algorithm>

#include "Model.h"

namespace quorvel::lives {

int Model::link_begins() {
    const Lock lock(mutex_);
    // With signals an interrupted registration is tried again, on a link of its own.
    const Truth::Link& last = truth_.link_of(truth_.link());
    if (truth_.link() != 0 && !last.dead && !has(kSignals))
        for (int user = 0; user < kUsers; ++user)
            if (registrations_.is_surely_in(user))
                object("the process registers anew, though its link was sound");
    const int link = truth_.new_link();
    history_.note(History::kServer, "link %d begins", link);
    kills_.forget();
    proper_.forget();
    tunnels_.forget();
    broadcasts_.release_all();
    return link;
}

void Model::client_closes(int link) {
    const Lock lock(mutex_);
    history_.note(History::kServer, "link %d was closed by the client", link);
    truth_.link_of(link).gone = true;
    for (const Connection& connection : truth_.connections())
        if (connection.link == link)
            truth_.change(connection.serial).state = Connection::State::Ended;
}

void Model::dies() {
    const Lock lock(mutex_);
    history_.note(History::kServer, "dies");
    away_ = true;
    for (int link = 1; link <= truth_.link(); ++link)
        if (!truth_.link_of(link).gone)
            truth_.link_of(link).dead = true;
    for (const Connection& connection : truth_.connections())
        truth_.change(connection.serial).state = Connection::State::Ended;
    for (Op* op : ops_)
        op->away = op->broken = true;
    broadcasts_.release_all();
    changed_.notify_all();
}

void Model::is_back() {
    const Lock lock(mutex_);
    history_.note(History::kServer, "is back");
    away_ = false;
}

const Connection& Model::starts(int32_t profile, int serial, uint32_t free_id) {
    const Lock lock(mutex_);
    Connection& connection = serial != 0 ? truth_.change(serial) : truth_.new_connection(profile, free_id);
    ++connection.starts[static_cast<size_t>(profile)];
    truth_.set_current(profile, connection.serial);
    history_.note(History::kServer, "gives profile %d the %s %d, id %u", profile,
                  serial != 0 ? "present connection" : "connection", connection.serial, connection.id);
    uses_.starts(profile, connection.serial);
    for (Op* op : ops_) {
        if (op->profile != profile)
            continue;
        op->starts.push_back(connection.serial);
        op->serials.push_back(connection.serial);
    }
    note_closing();
    return connection;
}

void Model::refuses_start(int32_t profile, int32_t reason) {
    const Lock lock(mutex_);
    history_.note(History::kServer, "refuses profile %d for the reason %d", profile, reason);
    for (Op* op : ops_)
        if (op->profile == profile)
            op->reasons.push_back(reason);
}

void Model::names_default_profile(int32_t profile) {
    const Lock lock(mutex_);
    history_.note(History::kServer, "names %d as the default profile", profile);
    for (Op* op : ops_) {
        if (op->kind != Kind::Open || op->argument != 0)
            continue;
        // An earlier question, interrupted, may be what the server has answered before.
        if (op->opening)
            uses_.not_opened(op->user, op->profile);
        op->opening = false;
        begin_open(*op, profile);
    }
}

// Whoever cleans up kills all of these.
void Model::lists(const std::vector<int32_t>& profiles) {
    const Lock lock(mutex_);
    for (Op* op : ops_) {
        if (op->kind != Kind::Cleanup || op->user >= kUsers)
            continue;
        for (const int32_t profile : profiles) {
            kills_.keep(kills_.take(op->user, profile, registrations_.instance(op->user)), true);
            kills_.mix();
            begin_kill(*op, op->user, profile);
            if (Use* use = uses_.find(op->user, profile))
                use->perhaps_gone = true;
        }
    }
}

void Model::changes(int serial, Connection::State state, const char* why) {
    const Lock lock(mutex_);
    history_.note(History::kServer, "connection %d %s", serial, why);
    truth_.change(serial).state = state;
    note_closing();
    if (state == Connection::State::Suspended)
        uses_.suspends(serial);
}

void Model::is_killed(int serial) {
    const Lock lock(mutex_);
    truth_.change(serial).killed = true;
}

void Model::has_end_to_push(int serial) {
    const Lock lock(mutex_);
    ++truth_.change(serial).ends_to_push;
}

int Model::changes_address(int serial) {
    const Lock lock(mutex_);
    Connection& connection = truth_.change(serial);
    history_.note(History::kServer, "connection %d gets another address", serial);
    return ++connection.change;
}

void Model::pushes(const Pushed& pushed) {
    const Lock lock(mutex_);
    constexpr const char* kNames[] = {"start",  "refusal", "stop",      "kill",   "end",    "suspend",
                                      "resume", "change",  "broadcast", "tunnel", "proper", "noise"};
    history_.note(History::kServer, "pushes %s: connection %d, profile %d, status %u, number %u",
                  kNames[static_cast<size_t>(pushed.what)], pushed.serial, pushed.profile, pushed.status,
                  pushed.number);
    const uint64_t position = truth_.push(pushed);
    if (pushed.what == Pushed::What::Broadcast)
        broadcasts_.push(pushed.number, pushed.tunnel, position, registrations_);
    if (pushed.what == Pushed::What::Tunnel)
        tunnels_.answer(pushed.number);
}

uint32_t Model::gives_ticket(const Asked& asked) {
    const Lock lock(mutex_);
    const uint64_t now = history_.note(History::kServer, "%s command %u, %u",
                                       asked.refused ? "refuses" : "answers", asked.command, asked.detail);
    return ledger_.give(asked, now);
}

void Model::gives_tunnel(uint32_t id) {
    const Lock lock(mutex_);
    tunnels_.give(id);
}

uint32_t Model::next_broadcast() {
    const Lock lock(mutex_);
    return broadcasts_.next();
}

bool Model::is_finished(int serial) const {
    const Lock lock(mutex_);
    return truth_.is_finished(serial);
}

bool Model::is_certainly_held(int32_t profile, int serial) const {
    const Lock lock(mutex_);
    return uses_.is_certainly_held(profile, serial);
}

}  // namespace quorvel::lives
