#include "support/ServerSocket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "common/PmWire.h"

namespace quorvel::test {
namespace {

constexpr int kBacklog = 64;

template <class T>
T peek(const Bytes& bytes, size_t offset) {
    T value{};
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

// The length of the request at the front of the bytes, as far as they tell: more than there are when some
// miss.
size_t request_length(const Bytes& bytes) {
    constexpr size_t header_length = sizeof(wire::RequestHeader);
    if (bytes.size() < header_length)
        return header_length;
    const auto header = peek<wire::RequestHeader>(bytes, 0);
    switch (header.Command) {
        case wire::NETCM_CLIENT_TUNNEL_REQ:
            return header_length + header.Arg4;
        case wire::NETPM_PROFILE_REQ: {
            const size_t with_pm_header = header_length + sizeof(wire::PmRequestHeader);
            if (bytes.size() < with_pm_header)
                return with_pm_header;
            return with_pm_header + peek<wire::PmRequestHeader>(bytes, header_length).DataLength;
        }
        case wire::NETPM_APPPROF_REQ:
            return header_length + sizeof(wire::AppProfMsg);
        default:
            return header_length;
    }
}

}  // namespace

int checked(int result, const char* what) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

int listen_at(const char* path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path);
    unlink(path);
    const int fd = checked(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
    checked(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), path);
    checked(listen(fd, kBacklog), path);
    return fd;
}

bool write_all(int fd, const void* bytes, size_t length) {
    for (size_t sent = 0; sent < length;) {
        const ssize_t result =
            send(fd, static_cast<const std::byte*>(bytes) + sent, length - sent, MSG_NOSIGNAL);
        if (result <= 0)
            return false;
        sent += static_cast<size_t>(result);
    }
    return true;
}

std::optional<Request> take_request(Bytes& bytes) {
    const size_t length = request_length(bytes);
    if (bytes.size() < length)
        return std::nullopt;
    const auto end = bytes.begin() + static_cast<std::ptrdiff_t>(length);
    Request request{};
    request.header = peek<wire::RequestHeader>(bytes, 0);
    request.payload.assign(bytes.begin() + sizeof(wire::RequestHeader), end);
    bytes.erase(bytes.begin(), end);
    return request;
}

}  // namespace quorvel::test
