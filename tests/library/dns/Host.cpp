#include "Host.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace quorvel::test::dns {

int needed_for(const std::vector<std::string>& texts, int addresses) {
    int needed = kHostData + 4 * addresses;
    for (const std::string& text : texts)
        needed += static_cast<int>(text.size()) + 1;
    return needed;
}

std::vector<std::string> aliases_of(const hostent* host) {
    std::vector<std::string> aliases;
    for (char** alias = host->h_aliases; *alias != nullptr; ++alias)
        aliases.emplace_back(*alias);
    return aliases;
}

std::vector<std::string> addresses_of(const hostent* host) {
    std::vector<std::string> addresses;
    for (char** address = host->h_addr_list; *address != nullptr; ++address) {
        char text[INET_ADDRSTRLEN];
        addresses.emplace_back(inet_ntop(AF_INET, *address, text, sizeof text));
    }
    return addresses;
}

HostBuffer::HostBuffer(int size) : bytes_(static_cast<size_t>(size), '\x5a') {}

bool HostBuffer::holds(const void* pointer) const {
    const char* at = static_cast<const char*>(pointer);
    return at >= bytes_.data() + kHostData && at < bytes_.data() + bytes_.size();
}

Resolution& Resolution::by_name(const char* name, const char* server, const char* ifname) {
    errno = 0;
    host = dnet_gethostbyname_r(server, ifname, name, buffer.data(), buffer.size(), &herr, &ttl, &needed);
    error = errno;
    return *this;
}

Resolution& Resolution::by_address(const char* address, const char* server) {
    char bytes[4];
    inet_pton(AF_INET, address, bytes);
    errno = 0;
    host = dnet_gethostbyaddr_r(server, nullptr, bytes, sizeof bytes, AF_INET, buffer.data(), buffer.size(),
                                &herr, &ttl, &needed);
    error = errno;
    return *this;
}

void expect_layout(const hostent* host, HostBuffer& buffer) {
    ASSERT_NE(host, nullptr);
    char* const start = buffer.data();
    EXPECT_EQ(reinterpret_cast<const char*>(host), start);
    EXPECT_EQ(reinterpret_cast<char*>(host->h_aliases), start + kHostAliases);
    EXPECT_EQ(reinterpret_cast<char*>(host->h_addr_list), start + kHostAddresses);
    EXPECT_EQ(host->h_addrtype, AF_INET);
    EXPECT_EQ(host->h_length, 4);
    EXPECT_TRUE(host->h_name == nullptr || buffer.holds(host->h_name));
    for (char** alias = host->h_aliases; *alias != nullptr; ++alias)
        EXPECT_TRUE(buffer.holds(*alias));
    for (char** address = host->h_addr_list; *address != nullptr; ++address)
        EXPECT_TRUE(buffer.holds(*address) && buffer.holds(*address + 3));
}

}  // namespace quorvel::test::dns
