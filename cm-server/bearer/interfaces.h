// The network interfaces of this machine, as the kernel has told us last.
#pragma once

#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bearer/route_socket.h"

namespace quorvel::cm {

// Received bytes, sent bytes, received packets, sent packets, receive errors, send errors.
using Counters = std::array<uint32_t, 6>;

struct InterfaceState {
    std::string name;
    bool running = false;  // administratively up, and with a carrier
    std::vector<in_addr> addresses;
    Counters counters{};  // as they were at the last look
};

// Follows the kernel's messages, one change at a time, so that a change costs what it changes and a question
// costs nothing. What the kernel does not tell is not known: it changes nothing that is.
class Interfaces {
  public:
    using Changed = std::function<void(const std::string& name)>;

    // Throws std::runtime_error when the kernel tells nothing.
    Interfaces();
    Interfaces(const Interfaces&) = delete;
    Interfaces& operator=(const Interfaces&) = delete;

    // Null when there is no such interface.
    const InterfaceState* find(const std::string& name) const;
    // Which has this address; null when none has.
    const InterfaceState* find_with(in_addr address) const;
    // Asks the kernel for this one alone, its counters included.
    const InterfaceState* look_at(const std::string& name);

    // Told after each change of an interface, or of its addresses.
    void watch(Changed changed) { changed_ = std::move(changed); }
    // Told when something has been taken in that take_news() will tell.
    void wake(std::function<void()> news) { news_come_ = std::move(news); }
    // Readable when the kernel has something to tell.
    int fd() const { return mnl_socket_get_fd(news_.get()); }
    // Takes in what the kernel has told by now.
    void catch_up();
    // Whether anything has been taken in since this was last asked.
    bool take_news() { return std::exchange(has_news_, false); }
    // Whether something that has changed could not be looked at.
    bool behind() const { return behind_ || !other_addresses_.empty(); }

  private:
    using Links = std::map<int, InterfaceState>;

    bool look_at_all();
    void replace(Links links);
    void take_in(const nlmsghdr& message);
    void take_in_link(const nlmsghdr& message);
    void remove(int index);
    void look_at_addresses();
    void tell(const std::string& name);

    NetlinkSocket news_;
    RouteSocket route_;
    Links links_;
    std::unordered_map<std::string, int> indices_;
    std::set<int> other_addresses_;  // links whose addresses have changed
    bool has_news_ = false;
    bool behind_ = false;
    Changed changed_;
    std::function<void()> news_come_;
};

}  // namespace quorvel::cm
