// DNS messages as a test writes them: byte by byte where it must, by record where it can.
#pragma once

#include <arpa/inet.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quorvel::test::dns {

using Bytes = std::vector<uint8_t>;

inline constexpr uint16_t kA = 1;
inline constexpr uint16_t kCname = 5;
inline constexpr uint16_t kPtr = 12;
inline constexpr uint16_t kTxt = 16;
inline constexpr uint16_t kIn = 1;
inline constexpr uint16_t kChaos = 3;

// A compression pointer to an offset, and the offset of the question's name, which every message begins with.
Bytes pointer_to(int offset);
inline constexpr int kQuestionAt = 12;

// "a.b" as labels with the root behind them; nothing is checked.
Bytes labels(std::string_view name);
std::string long_label(size_t length);
Bytes address_bytes(const char* address);
Bytes operator+(Bytes left, const Bytes& right);

uint16_t word_at(const Bytes& message, size_t offset);

class Response {
  public:
    // Repeats the query's id and question, as a server does.
    explicit Response(const Bytes& query);

    Response& id(uint16_t id);
    Response& flags(uint16_t flags);
    Response& questions(uint16_t count);
    Response& answers(uint16_t count);  // other than the records that are there
    Response& without_question();

    Response& a(std::string_view owner, const char* address, uint32_t ttl = 60);
    Response& cname(std::string_view owner, std::string_view target, uint32_t ttl = 60);
    Response& ptr(std::string_view owner, std::string_view target, uint32_t ttl = 60);
    Response& record(const Bytes& owner, uint16_t type, uint16_t record_class, uint32_t ttl,
                     const Bytes& data);
    // A record whose data length is not the length of its data.
    Response& record(const Bytes& owner, uint16_t type, uint16_t record_class, uint32_t ttl,
                     const Bytes& data, uint16_t length);
    Response& raw(const Bytes& bytes);

    Bytes bytes() const;

  private:
    uint16_t id_;
    uint16_t flags_ = 0x8180;
    uint16_t questions_ = 1;
    int answers_ = -1;
    uint16_t records_ = 0;
    Bytes question_;
    Bytes body_;
};

}  // namespace quorvel::test::dns
