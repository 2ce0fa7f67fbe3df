#include "support/Network.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>

namespace quorvel::test {
namespace {

class UdpSocket {
  public:
    ~UdpSocket() { close(fd_); }
    UdpSocket() = default;
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;
    int fd() const { return fd_; }

  private:
    int fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

}  // namespace

void send_over_loopback(size_t size, int count) {
    const UdpSocket from;
    const UdpSocket to;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* any = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(bind(to.fd(), any, length), 0);
    ASSERT_EQ(getsockname(to.fd(), any, &length), 0);
    const std::string data(size, 'x');
    std::string taken(size, '\0');
    for (int i = 0; i < count; ++i) {
        ASSERT_EQ(sendto(from.fd(), data.data(), size, 0, any, length), static_cast<ssize_t>(size));
        ASSERT_EQ(recv(to.fd(), taken.data(), size, 0), static_cast<ssize_t>(size));
    }
}

bool is_running(const char* interface) {
    const UdpSocket any;
    ifreq request{};
    strncpy(request.ifr_name, interface, IFNAMSIZ - 1);
    return ioctl(any.fd(), SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & IFF_RUNNING) != 0;
}

}  // namespace quorvel::test
