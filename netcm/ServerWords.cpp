#include "ServerWords.h"

#include <algorithm>
#include <cstddef>

namespace quorvel::netcm {
namespace {

constexpr std::array kServerErrors{
    ServerError{101, "PM_ERR_BAD_REQUEST",
                "the request has no data, or data of another length than it needs"},
    ServerError{102, "PM_ERR_UNKNOWN_COMMAND", "there is no such command"},
    ServerError{103, "PM_ERR_UNKNOWN_PROFILE", "there is no profile with this id"},
    ServerError{104, "PM_ERR_NO_DEFAULT", "there is no default profile"},
    ServerError{105, "PM_ERR_IN_USE", "a connection of the profiles is in use"},
    ServerError{106, "PM_ERR_UNKNOWN_TYPE", "the profile is neither packet data nor Wi-Fi"},
    ServerError{107, "PM_ERR_EMPTY_NAME", "the profile has no name"},
    ServerError{108, "PM_ERR_UNENDED_TEXT", "a text field of the profile does not end within the field"},
    ServerError{109, "PM_ERR_BAD_PROTOCOL", "the application protocol is not 1, 2 or 4"},
    ServerError{110, "PM_ERR_NO_NETWORK_NAME", "the Wi-Fi profile has no network name"},
    ServerError{111, "PM_ERR_BAD_SECURITY", "the security mode of the Wi-Fi profile is not 1 to 9"},
    ServerError{112, "PM_ERR_BAD_KEY_INDEX", "the index of the key in use is not 0 to 3"},
    ServerError{113, "PM_ERR_UNKNOWN_APPLICATION", "there is no application with this id"},
    ServerError{114, "PM_ERR_KNOWN_APPLICATION", "there is an application with this id already"},
    ServerError{115, "PM_ERR_BAD_INTERFACE", "an interface is not 0, 1 or 2"},
    ServerError{116, "PM_ERR_BAD_PAYMENT", "the payment setting is none that is known"},
    ServerError{117, "PM_ERR_STORE", "the store cannot be read or written"},
    ServerError{118, "PM_ERR_TOO_MANY", "the user has as many profiles as one user may have"},
};

template <size_t N>
const char* at(const std::array<const char*, N>& texts, uint32_t index) {
    return index < N ? texts[index] : nullptr;
}

}  // namespace

const char* reason_text(int32_t reason) {
    constexpr std::array<const char*, 7> kTexts{nullptr,
                                                "there is no such network interface",
                                                "the network interface is down",
                                                "the network interface has no IPv4 address",
                                                "it took too long",
                                                "the network has refused it",
                                                "the network has ended it"};
    return at(kTexts, static_cast<uint32_t>(reason));
}

const char* network_status_text(uint32_t status) {
    constexpr std::array<const char*, 4> kTexts{"absent", "down", "without an address", "ready"};
    return at(kTexts, status);
}

const ServerError* find_server_error(uint32_t number) {
    const auto found = std::ranges::find(kServerErrors, number, &ServerError::number);
    return found == kServerErrors.end() ? nullptr : &*found;
}

}  // namespace quorvel::netcm
