// Status codes in words, and the one error that ends a command.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace quorvel::netcm {

struct StatusText {
    uint32_t code;
    std::string_view name;
    std::string_view meaning;
};

// The entry of a code of NetCM.h; null for the server's own status words.
const StatusText* find_status(uint32_t status);

// "NETCM_ERR_NOT_ACTIVE (9): no such connection, ..." or "status 42 of the CM server".
std::string describe_status(uint32_t status);

// A command that could not be done. The text is for a person; netcm prints it and ends with status 1.
class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Throws a Failure that says what could not be done and why, unless the status is success. A hint says what
// the user can do about it.
void require_success(uint32_t status, const std::string& what, const std::string& hint = "");

// There is no profile that is meant when none is named.
inline constexpr const char* kNoDefaultProfile =
    "there is no default profile; \"netcm profile default N\" makes profile N the default";

// The same for the outcome of an open, which carries a transport error when the status is 21.
constexpr uint32_t kTransportFailure = 21;
std::string describe_open_failure(uint32_t status, int32_t transport_error);

}  // namespace quorvel::netcm
