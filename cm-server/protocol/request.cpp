#include "protocol/request.h"

#include <string>

#include "common/PmWire.h"
#include "protocol/cursor.h"

namespace quorvel::cm {
namespace {

// Beyond this, what a large request has needed is given back once it has been served.
constexpr size_t kKeptCapacity = size_t{64} * 1024;

size_t checked_size(const char* what, uint32_t size, uint32_t limit) {
    if (size > limit)
        throw ProtocolError(std::string(what) + " of " + std::to_string(size) + " bytes announced, " +
                            std::to_string(limit) + " are allowed");
    return size;
}

// The length of what follows the header; nothing while that cannot be told yet.
std::optional<size_t> payload_size(const wire::RequestHeader& header, Cursor rest) {
    switch (header.Command) {
        case wire::NETCM_CLIENT_TUNNEL_REQ:
            return checked_size("tunnel data", header.Arg4, kMaxTunnelData);
        case wire::NETPM_APPPROF_REQ:
            return sizeof(wire::AppProfMsg);
        case wire::NETPM_PROFILE_REQ: {
            wire::PmRequestHeader profile_header{};
            if (!rest.read(profile_header))
                return std::nullopt;
            return sizeof(profile_header) +
                   checked_size("profile data", profile_header.DataLength, kMaxProfileData);
        }
        default:
            return 0;
    }
}

}  // namespace

void RequestReader::feed(std::span<const std::byte> bytes) {
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<ptrdiff_t>(consumed_));
    consumed_ = 0;
    if (buffer_.empty() && buffer_.capacity() > kKeptCapacity)
        buffer_.shrink_to_fit();
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
}

std::optional<Request> RequestReader::next() {
    Cursor cursor(std::span<const std::byte>(buffer_).subspan(consumed_));
    Request request;
    if (!cursor.read(request.header))
        return std::nullopt;
    if (wire::find_command(request.header.Command) == nullptr)
        throw ProtocolError("unknown command " + std::to_string(request.header.Command));
    const auto size = payload_size(request.header, cursor);
    if (!size || cursor.remaining() < *size)
        return std::nullopt;
    const auto payload = cursor.take(*size);
    request.payload.assign(payload.begin(), payload.end());
    consumed_ = buffer_.size() - cursor.remaining();
    if (pending() == 0)
        feed({});
    return request;
}

}  // namespace quorvel::cm
