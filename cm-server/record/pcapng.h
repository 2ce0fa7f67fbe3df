// Records as pcapng, which Wireshark reads: each message is a packet of link type "upper PDU" for the
// dissector "quorvel", with a header of its own before the bytes as they passed.
#pragma once

#include <span>
#include <vector>

#include "record/format.h"

namespace quorvel::cm {

// Stands before the bytes of a packet; its numbers have the high byte first.
struct PacketHeader {
    uint8_t version;  // kPacketVersion
    uint8_t kind;     // a PassingKind
    uint8_t little;   // 1: the numbers in the bytes have the low byte first
    uint8_t reserved;
    uint8_t client[4];
    uint8_t number[8];
};
static_assert(sizeof(PacketHeader) == 16);
inline constexpr uint8_t kPacketVersion = 1;

class Pcapng : public RecordFormat {
  public:
    std::string opening(const nlohmann::json& begin) override;
    std::string entry(const Passing& passing) override;
};

bool is_pcapng(std::span<const std::byte> file);

// All packets of a record. What is behind the last whole block is left out; `cut` becomes how many bytes that
// are. Throws RecordError where it makes no sense.
std::vector<Kept> read_pcapng(const std::string& name, std::span<const std::byte> file, size_t& cut);

}  // namespace quorvel::cm
