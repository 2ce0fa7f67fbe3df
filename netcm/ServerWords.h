// What the CM server of this package means by the words that the library only carries. Another server may
// mean something else by them, so the number is printed as well.
#pragma once

#include <array>
#include <cstdint>

namespace quorvel::netcm {

// Why a connection did not come up or has ended; null for a word that has no meaning there.
const char* reason_text(int32_t reason);
const char* network_status_text(uint32_t status);

// Why the profile manager refuses; null for a number that is none of its errors.
struct ServerError {
    uint32_t number;
    const char* name;
    const char* text;
};
const ServerError* find_server_error(uint32_t number);

// The call statistics, in their order.
inline constexpr std::array<const char*, 6> kCounterNames{
    "received_bytes", "sent_bytes", "received_packets", "sent_packets", "receive_errors", "send_errors"};

}  // namespace quorvel::netcm
