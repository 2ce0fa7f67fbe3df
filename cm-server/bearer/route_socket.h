// Questions to the kernel about links and addresses. The socket is there from the start, so that a server
// that is short of descriptors can still ask.
#pragma once

#include <libmnl/libmnl.h>

#include <functional>
#include <memory>
#include <string>

#include "events.h"

namespace quorvel::cm {

using NetlinkSocket = std::unique_ptr<mnl_socket, Freed<mnl_socket_close>>;
// Follows these multicast groups; none is 0. Throws std::runtime_error when the kernel does not let us.
NetlinkSocket open_netlink(unsigned groups, int flags);

class RouteSocket {
  public:
    // What came of a question: everything that there is, that there is no such thing, or that the kernel has
    // not answered, which says nothing.
    enum class Answer { kComplete, kAbsent, kUnknown };
    using Each = std::function<void(const nlmsghdr& message)>;

    RouteSocket();

    Answer all_links(const Each& each);
    Answer all_addresses(const Each& each) { return addresses(0, each); }
    Answer link(const std::string& name, const Each& each);
    Answer addresses_of(int index, const Each& each) { return addresses(index, each); }

  private:
    Answer addresses(int index, const Each& each);
    Answer ask(nlmsghdr& question, const Each& each);

    NetlinkSocket socket_;
    unsigned sequence_ = 0;
};

}  // namespace quorvel::cm
