// What the server sends: a record, and the block that follows it.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/Wire.h"

namespace quorvel::cm {

struct Message {
    wire::Record record{};
    std::vector<std::byte> block;
};

// The addresses of a connection that is up.
struct Addresses {
    std::string interface;
    in_addr address{};
    std::vector<in_addr> dns;
};

Message make_message(wire::Event code, uint32_t status = NETCM_SUCCESS);

// Appends a record as it lies in memory.
template <class T>
void append(std::vector<std::byte>& block, const T& record) {
    static_assert(std::is_trivially_copyable_v<T>);
    const auto bytes = std::as_bytes(std::span(&record, 1));
    block.insert(block.end(), bytes.begin(), bytes.end());
}

// Copies text into a field and fills the rest with zeros; the last byte stays zero.
void put_text(std::span<char> field, std::string_view text);
// The text of a field of fixed size, which may have no end.
template <size_t Size>
std::string_view field_text(const char (&field)[Size]) {
    return {field, strnlen(field, Size)};
}

NetCMAddr to_wire(in_addr address);
wire::ConnectionBlock to_wire(const Addresses& addresses);

std::string to_text(in_addr address);

}  // namespace quorvel::cm
