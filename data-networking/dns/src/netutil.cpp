// The resolver's sockets: each operation repeats itself only when a signal interrupts it, and traces its
// failure.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "common/CancelHold.h"
#include "common/Descriptor.h"
#include "common/Exported.h"
#include "common/KeepErrno.h"
#include "common/Trace.h"
#include "quorvel/NetDNS.h"

using namespace quorvel;

extern "C" {
int _dns_debug = 0;
}

int* quorvel::exported::dns_debug = &_dns_debug;

namespace {

bool bind_to_interface(int fd, const char* ifname) {
    const auto length = static_cast<socklen_t>(strlen(ifname) + 1);
    return setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, ifname, length) == 0;
}

// The coarse clock is cheaper to read, and only the rare wait that is interrupted needs any.
timespec coarse_time() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now;
}

// What is left of the time of a wait that began at `start`.
[[gnu::cold]] int left_of(int timeout_ms, timespec start) {
    // By as much as this the coarse clock may be behind: no interruption shall cut the wait short.
    constexpr int64_t kTickMs = 10;
    if (timeout_ms <= 0)
        return timeout_ms;
    const timespec now = coarse_time();
    const int64_t passed =
        int64_t{now.tv_sec - start.tv_sec} * 1000 + int64_t{now.tv_nsec - start.tv_nsec} / 1'000'000;
    return static_cast<int>(std::max<int64_t>(timeout_ms + kTickMs - passed, 0));
}

// Polls until the time is up however often signals interrupt it: an application with a periodic timer would
// otherwise wait for ever.
int poll_to_the_end(pollfd& waiting, int timeout_ms) {
    const timespec start = coarse_time();
    int left = timeout_ms;
    for (;;) {
        const int result = poll(&waiting, 1, left);
        if (result >= 0 || errno != EINTR)
            return result;
        left = left_of(timeout_ms, start);
    }
}

template <class Call>
ssize_t repeat_when_interrupted(Call call) {
    ssize_t result;
    do
        result = call();
    while (result < 0 && errno == EINTR);
    return result;
}

}  // namespace

extern "C" {

void dns_getenv(void) {
    const char* value = getenv("QVDNS_DEBUG");
    long level = 0;
    if (value != nullptr) {
        const KeepErrno keep;
        level = strtol(value, nullptr, 10);
    }
    // Every lookup of every thread sets it, without a lock: the level is not worth one.
    std::atomic_ref(*exported::dns_debug)
        .store(static_cast<int>(std::clamp<long>(level, INT_MIN, INT_MAX)), std::memory_order_relaxed);
}

int dns_socket(int udp, const char* ifname) {
    const CancelHold hold;
    const int kind = udp != 0 ? SOCK_DGRAM : SOCK_STREAM;
    const int fd = at_least(kLowestDescriptor, socket(AF_INET, kind | SOCK_CLOEXEC, 0));
    if (fd < 0) {
        const KeepErrno keep;
        QV_TRACE(4, "socket() failed: %d\n", errno);
        return -1;
    }
    if (ifname != nullptr && !bind_to_interface(fd, ifname)) {
        const KeepErrno keep;
        QV_TRACE(4, "setsockopt() failed: %d\n", errno);
        close(fd);
        return -1;
    }
    return fd;
}

int dns_connect(int fd, const char* server, int port) {
    const CancelHold hold;
    const in_addr_t address = server != nullptr ? inet_addr(server) : INADDR_NONE;
    if (address == INADDR_NONE) {
        QV_TRACE(4, "inet_addr() failed\n");
        errno = EINVAL;
        return -1;
    }
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(static_cast<uint16_t>(port));
    peer.sin_addr.s_addr = address;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0) {
        const KeepErrno keep;
        QV_TRACE(4, "connect() failed: %d\n", errno);
        return -1;
    }
    return 0;
}

int dns_send(int fd, const void* buf, int len) {
    const CancelHold hold;
    const ssize_t sent = repeat_when_interrupted([=]() -> ssize_t {
        // To the kernel a negative length would be a very long one.
        if (len < 0) {
            errno = EINVAL;
            return -1;
        }
        return send(fd, buf, static_cast<size_t>(len), MSG_NOSIGNAL);
    });
    if (sent < 0) {
        const KeepErrno keep;
        QV_TRACE(4, "send() failed: %d\n", errno);
        return -1;
    }
    return static_cast<int>(sent);
}

int dns_poll(int fd, int timeout_ms) {
    const CancelHold hold;
    pollfd waiting{fd, POLLIN | POLLERR, 0};
    const int result = poll_to_the_end(waiting, timeout_ms);
    if (result < 0) {
        const KeepErrno keep;
        QV_TRACE(4, "poll() failed: %d\n", errno);
        return -1;
    }
    if (result == 0) {
        QV_TRACE(2, "poll() timed out\n");
        errno = EAGAIN;
    }
    return result;
}

int dns_recv(int fd, void* buf, int len) {
    const CancelHold hold;
    if (fd < 1 || buf == nullptr || len <= 0) {
        QV_TRACE(4, "dns_recv() : Invalid Parameter\n");
        return -1;
    }
    const ssize_t received =
        repeat_when_interrupted([=] { return recv(fd, buf, static_cast<size_t>(len), 0); });
    if (received < 0) {
        const KeepErrno keep;
        QV_TRACE(4, "recv() failed: %d\n", errno);
        return -1;
    }
    return static_cast<int>(received);
}

int dns_close(int fd) {
    const CancelHold hold;
    close(fd);
    return 1;
}

}  // extern "C"
