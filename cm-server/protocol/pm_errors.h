// Why the profile manager refuses a request: the number that the application gets, its name and its meaning.
#pragma once

#include <cstdint>

namespace quorvel::cm {

#define QV_PM_ERRORS(X)                                                                            \
    X(PM_ERR_BAD_REQUEST, 101, "the request has no data, or data of another length than it needs") \
    X(PM_ERR_UNKNOWN_COMMAND, 102, "there is no such command")                                     \
    X(PM_ERR_UNKNOWN_PROFILE, 103, "there is no profile with this id")                             \
    X(PM_ERR_NO_DEFAULT, 104, "there is no default profile")                                       \
    X(PM_ERR_IN_USE, 105, "a connection of the profiles is in use")                                \
    X(PM_ERR_UNKNOWN_TYPE, 106, "the profile is neither packet data nor Wi-Fi")                    \
    X(PM_ERR_EMPTY_NAME, 107, "the profile has no name")                                           \
    X(PM_ERR_UNENDED_TEXT, 108, "a text field of the profile does not end within the field")       \
    X(PM_ERR_BAD_PROTOCOL, 109, "the application protocol is not 1, 2 or 4")                       \
    X(PM_ERR_NO_NETWORK_NAME, 110, "the Wi-Fi profile has no network name")                        \
    X(PM_ERR_BAD_SECURITY, 111, "the security mode of the Wi-Fi profile is not 1 to 9")            \
    X(PM_ERR_BAD_KEY_INDEX, 112, "the index of the key in use is not 0 to 3")                      \
    X(PM_ERR_UNKNOWN_APPLICATION, 113, "there is no application with this id")                     \
    X(PM_ERR_KNOWN_APPLICATION, 114, "there is an application with this id already")               \
    X(PM_ERR_BAD_INTERFACE, 115, "an interface is not 0, 1 or 2")                                  \
    X(PM_ERR_BAD_PAYMENT, 116, "the payment setting is none that is known")                        \
    X(PM_ERR_STORE, 117, "the store cannot be read or written")                                    \
    X(PM_ERR_TOO_MANY, 118, "the user has as many profiles as one user may have")

enum PmError : uint32_t {
    PM_SUCCESS = 0,
#define X(name, number, text) name = number,
    QV_PM_ERRORS(X)
#undef X
};

struct PmErrorEntry {
    const char* name;
    uint32_t number;
    const char* text;
};
inline constexpr PmErrorEntry kPmErrors[] = {
#define X(name, number, text) {#name, number, text},
    QV_PM_ERRORS(X)
#undef X
};

// The entry of a number, or null.
constexpr const PmErrorEntry* find_pm_error(uint32_t number) {
    for (const PmErrorEntry& entry : kPmErrors)
        if (entry.number == number)
            return &entry;
    return nullptr;
}

}  // namespace quorvel::cm
