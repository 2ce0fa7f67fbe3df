// Status and reason words of the server that the library hands on without a name of its own.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

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

// Names for numbers, as an operator may write them.
struct Word {
    const char* word;
    uint32_t number;
};
std::span<const Word> reason_words();
// Of answers and events, the errors of the profile manager among them.
std::span<const Word> status_names();
std::span<const Word> network_status_words();

std::optional<uint32_t> number_of(std::span<const Word> words, std::string_view word);
// "ready (3)"; a number that has no name stays a number.
std::string with_word(std::span<const Word> words, uint32_t number);
// All of them, separated by commas.
std::string all_of(std::span<const Word> words);

// What a status word of an answer or event says, with the reason behind it where it has one.
std::string status_words(uint32_t status, uint32_t reason);

}  // namespace quorvel::cm
