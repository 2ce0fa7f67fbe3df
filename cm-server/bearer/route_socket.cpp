#include "bearer/route_socket.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace quorvel::cm {
namespace {

// What the kernel puts into a message at most, for a reader who offers as much.
constexpr size_t kLargestMessage = size_t{32} * 1024;

template <class Header>
Header& begin(std::array<char, 512>& buffer, uint16_t type, uint16_t flags) {
    nlmsghdr* message = mnl_nlmsg_put_header(buffer.data());
    message->nlmsg_type = type;
    message->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
    return *static_cast<Header*>(mnl_nlmsg_put_extra_header(message, sizeof(Header)));
}

}  // namespace

NetlinkSocket open_netlink(unsigned groups, int flags) {
    NetlinkSocket result(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | flags));
    if (!result || mnl_socket_bind(result.get(), groups, MNL_SOCKET_AUTOPID) < 0)
        throw std::runtime_error(std::string("cannot follow the network interfaces: ") +
                                 std::strerror(errno));
    return result;
}

RouteSocket::RouteSocket() : socket_(open_netlink(0, 0)) {
    // The addresses of one link can be asked for alone; an older kernel gives all of them, which is as good.
    int on = 1;
    mnl_socket_setsockopt(socket_.get(), NETLINK_GET_STRICT_CHK, &on, sizeof(on));
    // The kernel answers at once or not at all.
    const timeval patience{1, 0};
    setsockopt(mnl_socket_get_fd(socket_.get()), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
}

RouteSocket::Answer RouteSocket::all_links(const Each& each) {
    std::array<char, 512> buffer{};
    begin<ifinfomsg>(buffer, RTM_GETLINK, NLM_F_DUMP).ifi_family = AF_UNSPEC;
    return ask(*reinterpret_cast<nlmsghdr*>(buffer.data()), each);
}

RouteSocket::Answer RouteSocket::link(const std::string& name, const Each& each) {
    std::array<char, 512> buffer{};
    begin<ifinfomsg>(buffer, RTM_GETLINK, 0).ifi_family = AF_UNSPEC;
    auto& message = *reinterpret_cast<nlmsghdr*>(buffer.data());
    mnl_attr_put_strz(&message, IFLA_IFNAME, name.substr(0, IFNAMSIZ - 1).c_str());
    return ask(message, each);
}

RouteSocket::Answer RouteSocket::addresses(int index, const Each& each) {
    std::array<char, 512> buffer{};
    auto& header = begin<ifaddrmsg>(buffer, RTM_GETADDR, NLM_F_DUMP);
    header.ifa_family = AF_INET;
    header.ifa_index = static_cast<uint32_t>(index);
    return ask(*reinterpret_cast<nlmsghdr*>(buffer.data()), each);
}

RouteSocket::Answer RouteSocket::ask(nlmsghdr& question, const Each& each) {
    question.nlmsg_seq = ++sequence_;
    if (mnl_socket_sendto(socket_.get(), &question, question.nlmsg_len) < 0)
        return Answer::kUnknown;
    const bool dump = (question.nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP;
    bool interrupted = false;
    std::array<char, kLargestMessage> buffer;
    while (true) {
        const ssize_t size = mnl_socket_recvfrom(socket_.get(), buffer.data(), buffer.size());
        if (size < 0)
            return Answer::kUnknown;
        int rest = static_cast<int>(size);
        for (auto* message = reinterpret_cast<nlmsghdr*>(buffer.data()); mnl_nlmsg_ok(message, rest);
             message = mnl_nlmsg_next(message, &rest)) {
            if (message->nlmsg_seq != sequence_)
                continue;  // of a question that has been given up
            interrupted = interrupted || (message->nlmsg_flags & NLM_F_DUMP_INTR) != 0;
            if (message->nlmsg_type == NLMSG_DONE)
                return interrupted ? Answer::kUnknown : Answer::kComplete;
            if (message->nlmsg_type == NLMSG_ERROR)
                return static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(message))->error == -ENODEV
                           ? Answer::kAbsent
                           : Answer::kUnknown;
            each(*message);
            if (!dump)
                return Answer::kComplete;
        }
    }
}

}  // namespace quorvel::cm
