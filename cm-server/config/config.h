// The configuration file, read and checked as a whole.
#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "log.h"
#include "profile.h"
#include "protocol/status.h"
#include "quotas.h"
#include "store/factory.h"

namespace quorvel::cm {

// A network that is not there: what becomes of a connection over it.
struct Simulation {
    std::chrono::milliseconds delay{0};
    Reason refusal = Reason::kNone;
    std::optional<std::chrono::milliseconds> lost_after;
    in_addr address{};
};

// A connection that NetworkManager brings up, and whose name servers it knows.
struct Managed {
    std::string connection;  // one that it has, by name or UUID; empty: made of the profile
};

// How profiles reach a network.
struct Network {
    NetIface kind = NETCM_IFACE_PDP;
    std::string access_point;  // empty: whatever the profile's is
    std::string interface;
    std::vector<in_addr> dns;  // empty: the configuration's, or else the machine's
    std::optional<Simulation> simulation;
    std::optional<Managed> managed;
    int32_t profile = 0;  // that the connection is for
};

struct Config {
    std::vector<FactoryProfile> profiles;
    bool has_profiles = false;  // of its own, and not those of a server without a file
    std::vector<Network> networks;
    std::vector<in_addr> dns;
    // How long a connection may wait for its interface.
    std::chrono::milliseconds set_up_limit{5000};
    // How old the good copy of the database may get.
    std::chrono::milliseconds good_copy_after{60000};
    Limits limits;
    std::optional<log::Level> log_level;
};

// Every fault of the file, one line each, with file and line number.
class ConfigError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// One profile, on the loopback interface, which carries all packet data.
Config built_in_config();

// Throws ConfigError.
Config read_config(const std::string& path);

// The interface and the name servers of a profile's connection: its own, or those of the first network that
// fits. The interface is empty when nothing says one.
Network network_of(const Config& config, const Profile& profile);

// The machine's own name servers, from resolv.conf.
std::vector<in_addr> system_name_servers(const std::string& path = "/etc/resolv.conf");

}  // namespace quorvel::cm
