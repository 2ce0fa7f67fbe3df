// An event of the library, copied out of the callback, and as JSON.
#pragma once

#include <quorvel/NetCM.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "Json.h"

namespace quorvel::netcm {

struct Reason {
    int32_t word;
};

struct NetworkStatus {
    std::array<int32_t, 2> words;
};

struct TunnelBytes {
    uint32_t request_id;
    std::vector<uint8_t> bytes;
};

struct ProperProfile {
    uint32_t status;
    int32_t app_id;
};

using EventData =
    std::variant<std::monostate, Reason, NetCMConnInfo, NetworkStatus, TunnelBytes, ProperProfile>;

struct Event {
    std::chrono::system_clock::time_point time;
    uint32_t type;
    int32_t profile;
    int32_t result;
    EventData data;
};

// Copies everything that the event points to: nothing of it lives after the callback.
Event copy_event(const NetCMEvent& event);

// "1.2.3.4"; an address of another type is named by its type, since the library carries no more of it.
std::string address_text(const NetCMAddr& address);

Json to_json(const NetCMConnInfo& info);
Json to_json(const Event& event);

}  // namespace quorvel::netcm
