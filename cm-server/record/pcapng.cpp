#include "record/pcapng.h"

#include <bit>
#include <cstring>

#include "monitor/decode.h"
#include "protocol/cursor.h"
#include "record/plan.h"

namespace quorvel::cm {
namespace {

constexpr uint32_t kSection = 0x0A0D0D0A;
constexpr uint32_t kInterface = 1;
constexpr uint32_t kPacket = 6;
constexpr uint32_t kMagic = 0x1A2B3C4D;
constexpr uint16_t kUpperPdu = 252;

// Tags before the bytes of an upper PDU: which dissector they are for; their end. High byte first.
constexpr char kTags[] = "\0\x0c\0\x08quorvel\0\0\0\0";
constexpr size_t kTagsSize = 16;
static_assert(sizeof(kTags) == kTagsSize);

template <class T>
void put(std::string& out, T number) {
    out.append(reinterpret_cast<const char*>(&number), sizeof(number));
}

void pad(std::string& out) {
    out.resize((out.size() + 3) / 4 * 4, '\0');
}

void put_option(std::string& out, uint16_t code, const std::string& text) {
    put(out, code);
    put(out, static_cast<uint16_t>(text.size()));
    out += text;
    pad(out);
}

std::string block(uint32_t type, const std::string& body) {
    std::string out;
    const auto size = static_cast<uint32_t>(12 + body.size());
    put(out, type);
    put(out, size);
    out += body;
    put(out, size);
    return out;
}

std::string section(const std::string& comment) {
    std::string body;
    put(body, kMagic);
    put(body, uint16_t{1});
    put(body, uint16_t{0});
    put(body, int64_t{-1});  // nobody knows its length yet
    put_option(body, 1, comment.substr(0, 60000));
    put_option(body, 4, "cm-server");
    put_option(body, 0, "");
    return block(kSection, body);
}

std::string interface() {
    std::string body;
    put(body, kUpperPdu);
    put(body, uint16_t{0});
    put(body, uint32_t{0});  // packets are whole
    put_option(body, 2, "cm-server");
    put_option(body, 9, std::string(1, '\x06'));  // times count microseconds
    put_option(body, 0, "");
    return block(kInterface, body);
}

void put_high_first(uint8_t* out, uint64_t number, size_t size) {
    for (size_t i = 0; i < size; ++i)
        out[i] = static_cast<uint8_t>(number >> (8 * (size - 1 - i)));
}

uint64_t number_of(const uint8_t* bytes, size_t size) {
    uint64_t number = 0;
    for (size_t i = 0; i < size; ++i)
        number = number << 8U | bytes[i];
    return number;
}

void put_bytes(std::string& out, std::span<const std::byte> bytes) {
    out.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

PacketHeader header_of(const Passing& passing) {
    PacketHeader header{};
    header.version = kPacketVersion;
    header.kind = static_cast<uint8_t>(passing.kind);
    header.little = std::endian::native == std::endian::little ? 1 : 0;
    put_high_first(header.client, passing.client, sizeof(header.client));
    put_high_first(header.number, passing.number, sizeof(header.number));
    return header;
}

// Reads blocks in the byte order of the section that they are in.
class Reader {
  public:
    Reader(const std::string& name, std::span<const std::byte> file) : name_(name), rest_(file) {}

    std::vector<Kept> all(size_t& cut) {
        while (next_block()) {
        }
        cut = rest_.size();
        return std::move(found_);
    }

  private:
    uint32_t word(std::span<const std::byte> from, size_t at) const {
        uint32_t result = 0;
        std::memcpy(&result, from.data() + at, sizeof(result));
        return swapped_ ? __builtin_bswap32(result) : result;
    }
    [[noreturn]] void fail(const std::string& what) const { throw RecordError(name_ + ": " + what); }

    bool next_block() {
        if (rest_.size() < 12)
            return false;
        uint32_t type = word(rest_, 0);
        if (type == kSection)
            swapped_ = word_of_this_machine(rest_, 8) != kMagic;
        if (type == kSection && word(rest_, 8) != kMagic)
            fail("is no pcapng file");
        type = word(rest_, 0);
        const uint32_t size = word(rest_, 4);
        if (size < 12 || size % 4 != 0)
            fail("a block of " + std::to_string(size) + " bytes makes no sense");
        if (size > rest_.size())
            return false;
        if (type == kPacket)
            packet(rest_.subspan(8, size - 12));
        rest_ = rest_.subspan(size);
        return true;
    }

    static uint32_t word_of_this_machine(std::span<const std::byte> from, size_t at) {
        uint32_t result = 0;
        std::memcpy(&result, from.data() + at, sizeof(result));
        return result;
    }

    void packet(std::span<const std::byte> body) {
        if (body.size() < 20)
            fail("a packet is too short");
        const size_t size = word(body, 12);
        if (size > body.size() - 20 || size != word(body, 16))
            fail("a packet is not whole");
        const auto data = body.subspan(20, size);
        PacketHeader header{};
        if (size < kTagsSize + sizeof(header) || std::memcmp(data.data(), kTags, kTagsSize) != 0)
            fail("a packet is none of a CM server");
        std::memcpy(&header, data.data() + kTagsSize, sizeof(header));
        if (header.version != kPacketVersion || header.kind > static_cast<uint8_t>(PassingKind::kNote))
            fail("a packet is of an unknown kind");
        Kept kept;
        kept.time = static_cast<int64_t>(uint64_t{word(body, 4)} << 32U | word(body, 8));
        kept.kind = static_cast<PassingKind>(header.kind);
        kept.client = static_cast<uint32_t>(number_of(header.client, sizeof(header.client)));
        kept.number = number_of(header.number, sizeof(header.number));
        const auto bytes = data.subspan(kTagsSize + sizeof(header));
        kept.bytes.assign(bytes.begin(), bytes.end());
        if (kept.kind != PassingKind::kNote &&
            (header.little == 1) != (std::endian::native == std::endian::little))
            fail("was recorded on a machine with another byte order; Wireshark can read it");
        found_.push_back(std::move(kept));
    }

    const std::string& name_;
    std::span<const std::byte> rest_;
    bool swapped_ = false;
    std::vector<Kept> found_;
};

}  // namespace

std::string Pcapng::opening(const nlohmann::json& begin) {
    const Kept note = make_note(begin);
    return section(to_line(begin)) + interface() + entry(note.passing());
}

std::string Pcapng::entry(const Passing& passing) {
    const PacketHeader header = header_of(passing);
    const auto size = static_cast<uint32_t>(kTagsSize + sizeof(header) + passing.size());
    const auto time = static_cast<uint64_t>(passing.time);
    std::string body;
    put(body, uint32_t{0});
    put(body, static_cast<uint32_t>(time >> 32U));
    put(body, static_cast<uint32_t>(time));
    put(body, size);
    put(body, size);
    body.append(kTags, kTagsSize);
    put_bytes(body, std::as_bytes(std::span(&header, 1)));
    put_bytes(body, passing.head);
    put_bytes(body, passing.rest);
    pad(body);
    // Seen from the server: requests come in.
    if (passing.kind != PassingKind::kNote) {
        std::string flags;
        put(flags, passing.kind == PassingKind::kRequest ? uint32_t{1} : uint32_t{2});
        put_option(body, 2, flags);
        put_option(body, 0, "");
    }
    return block(kPacket, body);
}

bool is_pcapng(std::span<const std::byte> file) {
    uint32_t type = 0;
    return Cursor(file).read(type) && type == kSection;
}

std::vector<Kept> read_pcapng(const std::string& name, std::span<const std::byte> file, size_t& cut) {
    return Reader(name, file).all(cut);
}

}  // namespace quorvel::cm
