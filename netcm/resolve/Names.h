// What the library makes of a name before it asks anybody (the rules are those of NetDNS.h).
#pragma once

#include <string>

namespace quorvel::netcm {

// Whether the library takes the name for a lookup over a profile.
bool is_valid_name(const std::string& name);

// Whether the name means this machine: "localhost", or an address that begins with "127.".
bool is_local_name(const std::string& name);

// Whether the name is a local one or an address, so that no server is asked.
bool needs_no_server(const std::string& name);

}  // namespace quorvel::netcm
