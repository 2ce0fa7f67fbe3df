// Status and reason words of the server that the library hands on without a name of its own.
#pragma once

#include <cstdint>
#include <string>

namespace quorvel::cm {

// The network has refused or ended it; the reason is in the record's word 5.
inline constexpr uint32_t kStatusTransport = 21;
// Another client has killed the connection.
inline constexpr uint32_t kStatusKilled = 22;

// Why a connection did not come up, or has ended: the reason word behind a status of 21.
enum class Reason : uint32_t {
    kNone = 0,
    kNoInterface = 1,
    kInterfaceDown = 2,
    kNoAddress = 3,
    kTimeLimit = 4,
    kRefused = 5,
    kLost = 6,
};

bool is_known(Reason reason);

// "the network interface is down"; a number nobody knows is given as a number.
std::string to_text(Reason reason);

// What a status word of an answer or event says, with the reason behind it where it has one.
std::string status_words(uint32_t status, uint32_t reason);

}  // namespace quorvel::cm
