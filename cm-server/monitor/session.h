// A session that the monitor has recorded, of one client.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorvel::cm {

// The file cannot be read, or is no record; what() says which line.
class SessionError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct SessionEntry {
    enum class Direction { kRequest, kAnswer, kEvent };
    Direction direction = Direction::kRequest;
    std::string name;
    std::string fields;
    std::vector<std::byte> bytes;
};

// The entries of a client; of the first one in the file when `client` is 0. Throws SessionError.
std::vector<SessionEntry> read_session(const std::string& path, uint32_t client);

}  // namespace quorvel::cm
