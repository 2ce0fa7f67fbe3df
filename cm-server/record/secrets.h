// Where secrets are among the bytes that pass: the passwords and keys of profiles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "protocol/message.h"
#include "protocol/request.h"

namespace quorvel::cm {

// A range of what passes, counted from the start of the request or record.
struct Secret {
    uint32_t at = 0;
    uint32_t size = 0;
};
using Secrets = std::vector<Secret>;

// Whether a column of a stored profile holds a secret.
bool is_secret(std::string_view column);

// Whatever has a profile's place and is none is a secret as a whole.
Secrets secrets_of(const Request& request);
// Of an answer as it was meant: what is sent may have been made wrong.
Secrets secrets_of(const Message& meant);

// Writes stars over those that are not empty.
void hide(std::span<std::byte> bytes, std::span<const Secret> secrets);

}  // namespace quorvel::cm
