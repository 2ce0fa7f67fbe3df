#include "protocol/message.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace quorvel::cm {

Message make_message(wire::Event code, uint32_t status) {
    Message message;
    message.record.Code = code;
    message.record.Status = status;
    return message;
}

void put_text(std::span<char> field, std::string_view text) {
    std::ranges::fill(field, '\0');
    std::copy_n(text.begin(), std::min(text.size(), field.size() - 1), field.begin());
}

NetCMAddr to_wire(in_addr address) {
    NetCMAddr result{};
    std::memcpy(result.Addr, &address, sizeof(address));
    return result;
}

wire::ConnectionBlock to_wire(const Addresses& addresses) {
    wire::ConnectionBlock block{};
    const size_t count = std::min(addresses.dns.size(), std::size(block.DnsAddr));
    block.DnsCount = static_cast<int32_t>(count);
    for (size_t i = 0; i < count; ++i)
        block.DnsAddr[i] = to_wire(addresses.dns[i]);
    block.IpAddr = to_wire(addresses.address);
    put_text(block.IfaceName, addresses.interface);
    return block;
}

std::string to_text(in_addr address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &address, text.data(), text.size());
    return text.data();
}

}  // namespace quorvel::cm
