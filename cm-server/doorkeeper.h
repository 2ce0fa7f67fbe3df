// Counts who has come in, and says who may not.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>

#include "connection.h"
#include "quotas.h"

namespace quorvel::cm {

class Doorkeeper {
  public:
    // So many connections there is room for, whoever they belong to.
    Doorkeeper(const Limits& limits, size_t room) : limits_(limits), room_(room) {}
    void use(const Limits& limits) { limits_ = limits; }

    // Why a user may have no more connections, or registrations; nothing when it may.
    std::optional<std::string> refuses_connection(uid_t user) const;
    std::optional<std::string> refuses_registration(uid_t user) const;
    // How long a connection may take to say who it is.
    std::chrono::milliseconds time_to_register(uid_t user, std::chrono::milliseconds otherwise) const;

    bool full() const { return guests_.size() >= room_; }
    // Who has been there longest without saying who it is; null when everybody has.
    Connection* longest_unknown() const;

    void enter(Connection& connection);
    // It has said who it is; `registers` when it counts as a registration.
    void recognise(const Connection& connection, bool registers);
    void leave(const Connection& connection);

  private:
    struct Guest {
        uid_t user = 0;
        uint64_t turn = 0;
        bool unknown = true;
        bool registered = false;
    };
    struct Use {
        size_t connections = 0;
        size_t unregistered = 0;
        size_t registrations = 0;
    };
    Use of(uid_t user) const;

    Limits limits_;
    size_t room_;
    uint64_t last_turn_ = 0;
    std::unordered_map<const Connection*, Guest> guests_;
    std::map<uint64_t, Connection*> unknown_;
    std::unordered_map<uid_t, Use> uses_;
};

}  // namespace quorvel::cm
