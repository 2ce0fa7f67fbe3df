#include "Message.h"

namespace quorvel::test::dns {
namespace {

constexpr size_t kHeader = 12;

void put_u16(Bytes& out, uint16_t value) {
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value));
}

void put_u32(Bytes& out, uint32_t value) {
    put_u16(out, static_cast<uint16_t>(value >> 16));
    put_u16(out, static_cast<uint16_t>(value));
}

void put(Bytes& out, const Bytes& bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}

}  // namespace

Bytes pointer_to(int offset) {
    return {static_cast<uint8_t>(0xC0 | offset >> 8), static_cast<uint8_t>(offset)};
}

Bytes labels(std::string_view name) {
    Bytes out;
    while (!name.empty()) {
        const std::string_view label = name.substr(0, name.find('.'));
        out.push_back(static_cast<uint8_t>(label.size()));
        out.insert(out.end(), label.begin(), label.end());
        name.remove_prefix(std::min(name.size(), label.size() + 1));
    }
    out.push_back(0);
    return out;
}

std::string long_label(size_t length) {
    return std::string(length, 'l');
}

Bytes address_bytes(const char* address) {
    Bytes bytes(4);
    inet_pton(AF_INET, address, bytes.data());
    return bytes;
}

Bytes operator+(Bytes left, const Bytes& right) {
    put(left, right);
    return left;
}

uint16_t word_at(const Bytes& message, size_t offset) {
    return static_cast<uint16_t>(message.at(offset) << 8 | message.at(offset + 1));
}

Response::Response(const Bytes& query)
    : id_(word_at(query, 0)), question_(query.begin() + kHeader, query.end()) {}

Response& Response::id(uint16_t id) {
    id_ = id;
    return *this;
}

Response& Response::flags(uint16_t flags) {
    flags_ = flags;
    return *this;
}

Response& Response::questions(uint16_t count) {
    questions_ = count;
    return *this;
}

Response& Response::answers(uint16_t count) {
    answers_ = count;
    return *this;
}

Response& Response::without_question() {
    question_.clear();
    return questions(0);
}

Response& Response::a(std::string_view owner, const char* address, uint32_t ttl) {
    return record(labels(owner), kA, kIn, ttl, address_bytes(address));
}

Response& Response::cname(std::string_view owner, std::string_view target, uint32_t ttl) {
    return record(labels(owner), kCname, kIn, ttl, labels(target));
}

Response& Response::ptr(std::string_view owner, std::string_view target, uint32_t ttl) {
    return record(labels(owner), kPtr, kIn, ttl, labels(target));
}

Response& Response::record(const Bytes& owner, uint16_t type, uint16_t record_class, uint32_t ttl,
                           const Bytes& data) {
    return record(owner, type, record_class, ttl, data, static_cast<uint16_t>(data.size()));
}

Response& Response::record(const Bytes& owner, uint16_t type, uint16_t record_class, uint32_t ttl,
                           const Bytes& data, uint16_t length) {
    put(body_, owner);
    put_u16(body_, type);
    put_u16(body_, record_class);
    put_u32(body_, ttl);
    put_u16(body_, length);
    put(body_, data);
    ++records_;
    return *this;
}

Response& Response::raw(const Bytes& bytes) {
    put(body_, bytes);
    return *this;
}

Bytes Response::bytes() const {
    Bytes out;
    const auto answers = answers_ >= 0 ? static_cast<uint16_t>(answers_) : records_;
    for (const uint16_t word : {id_, flags_, questions_, answers, uint16_t{0}, uint16_t{0}})
        put_u16(out, word);
    put(out, question_);
    put(out, body_);
    return out;
}

}  // namespace quorvel::test::dns
