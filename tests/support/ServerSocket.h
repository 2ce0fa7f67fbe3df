// What every server of a test needs: the socket, and requests cut out of what arrives on it.
#pragma once

#include <optional>

#include "support/Answer.h"

namespace quorvel::test {

// The result, or an exception with what the system says.
int checked(int result, const char* what);

// A listening socket; a file that is in the way is removed.
int listen_at(const char* path);

// False when the other end has gone.
bool write_all(int fd, const void* bytes, size_t length);
inline bool write_all(int fd, const Bytes& bytes) {
    return write_all(fd, bytes.data(), bytes.size());
}

// Takes the request at the front of the bytes, when it is there whole.
std::optional<Request> take_request(Bytes& bytes);

}  // namespace quorvel::test
