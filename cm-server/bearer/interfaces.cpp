#include "bearer/interfaces.h"

#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

namespace quorvel::cm {
namespace {

template <class T>
T copied(const void* source) {
    T result{};
    std::memcpy(&result, source, sizeof(result));
    return result;
}

Counters counters_of(const nlattr& attribute) {
    if (mnl_attr_get_payload_len(&attribute) < sizeof(rtnl_link_stats))
        return {};
    const auto stats = copied<rtnl_link_stats>(mnl_attr_get_payload(&attribute));
    return {stats.rx_bytes,   stats.tx_bytes,  stats.rx_packets,
            stats.tx_packets, stats.rx_errors, stats.tx_errors};
}

const ifinfomsg& link_header(const nlmsghdr& message) {
    return *static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(&message));
}

int index_of_address(const nlmsghdr& message) {
    return static_cast<int>(static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(&message))->ifa_index);
}

template <class Header, class Each>
void each_attribute(const nlmsghdr& message, Each each) {
    const auto one = [](const nlattr* attribute, void* context) {
        (*static_cast<Each*>(context))(*attribute, mnl_attr_get_type(attribute));
        return MNL_CB_OK;
    };
    mnl_attr_parse(&message, sizeof(Header), one, &each);
}

InterfaceState link_of(const nlmsghdr& message) {
    InterfaceState state;
    const unsigned flags = link_header(message).ifi_flags;
    state.running = (flags & IFF_UP) != 0 && (flags & IFF_RUNNING) != 0;
    each_attribute<ifinfomsg>(message, [&](const nlattr& attribute, int type) {
        if (type == IFLA_IFNAME)
            state.name = mnl_attr_get_str(&attribute);
        else if (type == IFLA_STATS)
            state.counters = counters_of(attribute);
    });
    return state;
}

// The interface's own address; the other one is that of the far end of a link between two.
std::optional<in_addr> address_of(const nlmsghdr& message) {
    std::optional<in_addr> own;
    std::optional<in_addr> other;
    each_attribute<ifaddrmsg>(message, [&](const nlattr& attribute, int type) {
        if (mnl_attr_get_payload_len(&attribute) != sizeof(in_addr))
            return;
        if (type == IFA_LOCAL)
            own = copied<in_addr>(mnl_attr_get_payload(&attribute));
        else if (type == IFA_ADDRESS)
            other = copied<in_addr>(mnl_attr_get_payload(&attribute));
    });
    return own ? own : other;
}

bool same_addresses(const std::vector<in_addr>& a, const std::vector<in_addr>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](in_addr left, in_addr right) { return left.s_addr == right.s_addr; });
}

// Messages of bridges about their ports have the same types.
bool is_link(const nlmsghdr& message) {
    return link_header(message).ifi_family == AF_UNSPEC;
}

constexpr int kTries = 3;

}  // namespace

// First the news, then the look: what changes in between comes as news.
Interfaces::Interfaces() : news_(open_netlink(RTMGRP_LINK | RTMGRP_IPV4_IFADDR, SOCK_NONBLOCK)) {
    if (!look_at_all())
        throw std::runtime_error("the kernel does not tell the network interfaces");
}

const InterfaceState* Interfaces::find(const std::string& name) const {
    const auto index = indices_.find(name);
    return index == indices_.end() ? nullptr : &links_.at(index->second);
}

const InterfaceState* Interfaces::find_with(in_addr address) const {
    const auto has_it = [&](const auto& link) {
        return std::ranges::any_of(link.second.addresses,
                                   [&](in_addr its) { return its.s_addr == address.s_addr; });
    };
    const auto found = std::ranges::find_if(links_, has_it);
    return found == links_.end() ? nullptr : &found->second;
}

const InterfaceState* Interfaces::look_at(const std::string& name) {
    catch_up();
    if (name.empty() || name.size() >= IFNAMSIZ)
        return nullptr;
    const auto answer = route_.link(name, [this](const nlmsghdr& message) { take_in(message); });
    if (const auto index = indices_.find(name);
        answer == RouteSocket::Answer::kAbsent && index != indices_.end())
        remove(index->second);
    return find(name);
}

bool Interfaces::look_at_all() {
    for (int i = 0; i < kTries; ++i) {
        Links links;
        const auto link = [&](const nlmsghdr& message) {
            if (message.nlmsg_type == RTM_NEWLINK && is_link(message))
                links[link_header(message).ifi_index] = link_of(message);
        };
        const auto address = [&](const nlmsghdr& message) {
            const auto found = links.find(index_of_address(message));
            if (const auto own = address_of(message); own && found != links.end())
                found->second.addresses.push_back(*own);
        };
        if (route_.all_links(link) != RouteSocket::Answer::kComplete ||
            route_.all_addresses(address) != RouteSocket::Answer::kComplete)
            continue;
        replace(std::move(links));
        return true;
    }
    return false;
}

void Interfaces::replace(Links links) {
    const Links before = std::exchange(links_, std::move(links));
    indices_.clear();
    for (const auto& [index, state] : links_)
        indices_[state.name] = index;
    for (const auto& [index, state] : before)
        tell(state.name);
    for (const auto& [index, state] : links_)
        tell(state.name);
}

void Interfaces::catch_up() {
    std::array<char, 32768> buffer;
    while (true) {
        const ssize_t size = mnl_socket_recvfrom(news_.get(), buffer.data(), buffer.size());
        // Some messages have been lost, or one was too long.
        behind_ = behind_ || (size < 0 && errno != EAGAIN && errno != EINTR);
        if (size <= 0 && errno != ENOBUFS && errno != ENOSPC)
            break;
        has_news_ = true;
        int rest = static_cast<int>(size);
        for (const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data());
             mnl_nlmsg_ok(message, rest); message = mnl_nlmsg_next(message, &rest))
            take_in(*message);
    }
    if (behind_)
        behind_ = !look_at_all();
    look_at_addresses();
    if (has_news_ && news_come_)
        news_come_();
}

void Interfaces::take_in(const nlmsghdr& message) {
    switch (message.nlmsg_type) {
        case RTM_NEWLINK:
            if (is_link(message))
                take_in_link(message);
            return;
        case RTM_DELLINK:
            if (is_link(message))
                remove(link_header(message).ifi_index);
            return;
        case RTM_NEWADDR:
        case RTM_DELADDR:
            other_addresses_.insert(index_of_address(message));
            return;
        default:
            return;
    }
}

void Interfaces::take_in_link(const nlmsghdr& message) {
    const int index = link_header(message).ifi_index;
    InterfaceState now = link_of(message);
    const auto known = links_.find(index);
    if (known != links_.end())
        now.addresses = known->second.addresses;
    else
        other_addresses_.insert(index);
    // It may have been renamed.
    if (known != links_.end() && known->second.name != now.name)
        remove(index);
    const std::string name = now.name;
    indices_[name] = index;
    links_[index] = std::move(now);
    tell(name);
}

void Interfaces::remove(int index) {
    const auto found = links_.find(index);
    if (found == links_.end())
        return;
    const std::string name = found->second.name;
    links_.erase(found);
    // Another one may have its name by now.
    if (const auto named = indices_.find(name); named != indices_.end() && named->second == index)
        indices_.erase(named);
    tell(name);
}

// In the kernel's order, which says which one is the first; what a message says does not tell that.
void Interfaces::look_at_addresses() {
    for (const int index : std::exchange(other_addresses_, {})) {
        std::vector<in_addr> addresses;
        const auto answer = route_.addresses_of(index, [&](const nlmsghdr& message) {
            if (const auto own = address_of(message); own && index_of_address(message) == index)
                addresses.push_back(*own);
        });
        const auto found = links_.find(index);
        if (answer == RouteSocket::Answer::kUnknown && found != links_.end())
            other_addresses_.insert(index);
        if (answer != RouteSocket::Answer::kComplete || found == links_.end() ||
            same_addresses(found->second.addresses, addresses))
            continue;
        found->second.addresses = std::move(addresses);
        tell(found->second.name);
    }
}

void Interfaces::tell(const std::string& name) {
    if (changed_)
        changed_(name);
}

}  // namespace quorvel::cm
