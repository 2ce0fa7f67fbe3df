// One query to one server over its interface.
#include "common/OwnDescriptors.h"
#include "common/Trace.h"
#include "dns/src/resolver/Resolver.h"
#include "quorvel/NetDNS.h"

namespace quorvel {
namespace {

constexpr int kAttempts = 2;
constexpr int kWaitMs = 2000;
constexpr int kDnsPort = 53;

void close_socket(int fd) {
    forget_descriptor(fd);
    dns_close(fd);
}

int open_socket(const Query& query) {
    const int fd = dns_socket(1, query.ifname);
    if (fd < 0) {
        QV_TRACE(4, "dns_socket() failed\n");
        return -1;
    }
    note_descriptor(fd);
    if (dns_connect(fd, query.server, kDnsPort) < 0) {
        QV_TRACE(4, "dns_connect() failed\n");
        close_socket(fd);
        return -1;
    }
    return fd;
}

bool send_and_wait(int fd, std::span<const uint8_t> message) {
    if (dns_send(fd, message.data(), static_cast<int>(message.size())) < 0) {
        QV_TRACE(4, "dns_send() failed\n");
        return false;
    }
    const int ready = dns_poll(fd, kWaitMs);
    if (ready > 0)
        return true;
    QV_TRACE(4, "dns_poll() %s\n", ready == 0 ? "timed out" : "failed");
    return false;
}

int receive_and_close(int fd, MessageBuffer& answer) {
    const int received = dns_recv(fd, answer.data(), static_cast<int>(answer.size()));
    if (received < 0)
        QV_TRACE(4, "dns_recv() failed\n");
    close_socket(fd);
    return received;
}

}  // namespace

int exchange(const Query& query, std::span<const uint8_t> message, MessageBuffer& answer) {
    int fd = -1;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (fd < 0)
            fd = open_socket(query);
        // A socket that has sent in vain is used again: a late response to the first query still arrives on
        // it.
        if (fd < 0 || !send_and_wait(fd, message))
            continue;
        const int received = receive_and_close(fd, answer);
        if (received >= 0)
            return received;
        fd = -1;
    }
    if (fd >= 0)
        close_socket(fd);
    return -1;
}

}  // namespace quorvel
