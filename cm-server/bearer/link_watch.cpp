#include "bearer/link_watch.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "guard.h"

namespace quorvel::cm {

LinkWatch::LinkWatch(event_base* base, std::function<void()> changed)
    : changed_(std::move(changed)), socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK)) {
    if (!socket_ || mnl_socket_bind(socket_.get(), RTMGRP_LINK | RTMGRP_IPV4_IFADDR, MNL_SOCKET_AUTOPID) < 0)
        throw std::runtime_error(std::string("cannot follow the network interfaces: ") +
                                 std::strerror(errno));
    const auto readable = [](evutil_socket_t, short, void* self) {
        guarded("the work on a change of the network", [self] { static_cast<LinkWatch*>(self)->read(); });
    };
    readable_.reset(event_new(base, mnl_socket_get_fd(socket_.get()), EV_READ | EV_PERSIST, readable, this));
    event_add(readable_.get(), nullptr);
}

// What a message says is not used: the interfaces are looked at afresh, so that a lost message costs nothing.
void LinkWatch::read() {
    std::array<char, 8192> message;
    while (mnl_socket_recvfrom(socket_.get(), message.data(), message.size()) > 0 || errno == ENOBUFS) {
    }
    changed_();
}

}  // namespace quorvel::cm
