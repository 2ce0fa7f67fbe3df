// The configuration file, read and checked as a whole.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "profile.h"

namespace quorvel::cm {

struct Config {
    // The profiles that are there from the start. The first is the default unless one says that it is.
    std::vector<Profile> profiles;
    int32_t default_profile = 0;
    // The interface of packet-data profiles that name none.
    std::string packet_data_interface = "lo";
    // Name servers of connections whose profile names none; empty: the machine's.
    std::vector<in_addr> dns;
};

// Every fault of the file, one line each, with file and line number.
class ConfigError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// One profile, on the loopback interface.
Config built_in_config();

// Throws ConfigError.
Config read_config(const std::string& path);

// The machine's own name servers, from resolv.conf.
std::vector<in_addr> system_name_servers(const std::string& path = "/etc/resolv.conf");

}  // namespace quorvel::cm
