// A stored profile as settings of a NetworkManager connection.
#pragma once

#include <stdexcept>

#include "config/config.h"
#include "networkmanager/bus.h"
#include "quorvel/NetPM.h"

namespace quorvel::cm {

// Marks what the server has made, for a server that comes after one that was killed: a key of the user data.
inline constexpr char kOurMark[] = "org.quorvel.cm-server";

// NetworkManager has nothing for what the profile asks for.
class NotSupported : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Appends them, as a{sa{sv}}. Name servers and interface are the network's. Throws NotSupported or BusError.
void append_settings(sd_bus_message* message, const NetPMProfile& profile, const Network& network);

}  // namespace quorvel::cm
