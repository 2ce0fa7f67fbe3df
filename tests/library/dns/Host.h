// A hostent as a test reads it, and the layout of one, stated once for both data models.
#pragma once

#include <netdb.h>

#include <string>
#include <vector>

#include "quorvel/NetDNS.h"

namespace quorvel::test::dns {

// Offsets in a result buffer; on a 32-bit system 20, 160 and 300.
inline constexpr int kHostAliases = static_cast<int>(sizeof(hostent));
inline constexpr int kHostAddresses = kHostAliases + 35 * static_cast<int>(sizeof(void*));
inline constexpr int kHostData = kHostAddresses + 35 * static_cast<int>(sizeof(void*));
static_assert(kHostData == (sizeof(void*) == 4 ? 300 : 592));

// The bytes that texts (each with its NUL) and addresses need.
int needed_for(const std::vector<std::string>& texts, int addresses);

std::vector<std::string> aliases_of(const hostent* host);
std::vector<std::string> addresses_of(const hostent* host);

// A buffer of exactly `size` bytes on the heap, where a sanitizer sees a byte too many.
class HostBuffer {
  public:
    explicit HostBuffer(int size);
    char* data() { return bytes_.data(); }
    int size() const { return static_cast<int>(bytes_.size()); }
    // Whether a text or an address lies within the data area.
    bool holds(const void* pointer) const;

  private:
    std::vector<char> bytes_;
};

// A call of one of the two entries, with what it gave.
struct Resolution {
    explicit Resolution(int size = 4096) : buffer(size) {}

    Resolution& by_name(const char* name, const char* server = "127.0.0.1", const char* ifname = nullptr);
    Resolution& by_address(const char* address, const char* server = "127.0.0.1");

    HostBuffer buffer;
    hostent* host = nullptr;
    int herr = 99;
    int error = 0;  // errno
    unsigned ttl = 987654;
    int needed = -1;
};

// The structure at the start, both arrays behind it, everything else in the data area.
void expect_layout(const hostent* host, HostBuffer& buffer);

}  // namespace quorvel::test::dns
