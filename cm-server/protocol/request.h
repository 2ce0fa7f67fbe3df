// Requests, as they are cut out of the stream of a socket.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <stdexcept>
#include <vector>

#include "common/Wire.h"

namespace quorvel::cm {

// The largest payload of a tunnel request; a client that announces more is taken to be out of step.
inline constexpr uint32_t kMaxTunnelData = 1024 * 1024;
// The largest data of a profile-manager request. Its largest valid data is a profile of 972 bytes.
inline constexpr uint32_t kMaxProfileData = 4096;

struct Request {
    wire::RequestHeader header{};
    std::vector<std::byte> payload;
};

// The stream makes no sense: whoever writes it cannot be served any further.
class ProtocolError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Cuts a stream into requests, however the bytes arrive.
class RequestReader {
  public:
    void feed(std::span<const std::byte> bytes);

    // The next complete request; nothing until more bytes have arrived. Throws ProtocolError.
    std::optional<Request> next();

    // Bytes of a request that is not complete yet.
    size_t pending() const { return buffer_.size() - consumed_; }
    // The memory that it takes, used or not.
    size_t held() const { return buffer_.capacity(); }

  private:
    std::vector<std::byte> buffer_;
    size_t consumed_ = 0;
};

}  // namespace quorvel::cm
