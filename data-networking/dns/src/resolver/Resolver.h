// One query to one server, piece by piece: the pieces trace under the resolver's name.
#pragma once

#include <netdb.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace quorvel {

inline constexpr size_t kMessageBytes = 512;  // the classic limit of DNS over UDP
inline constexpr size_t kHeaderBytes = 12;
inline constexpr size_t kNameTextBytes = 256;
inline constexpr size_t kLongestQueryName = 255;

enum RecordType : uint16_t { kTypeA = 1, kTypeCname = 5, kTypePtr = 12 };
inline constexpr uint16_t kClassIn = 1;

using MessageBuffer = std::array<uint8_t, kMessageBytes>;
using NameText = std::array<char, kNameTextBytes>;

// What is asked, and of whom.
struct Query {
    const char* server;  // dotted IPv4 address
    const char* ifname;  // may be null
    uint16_t type;       // kTypeA: data is the name; kTypePtr: data is an address of 4 bytes in network order
    std::string_view data;
};

// A response whose header has been examined and whose questions have been passed.
struct Response {
    MessageBuffer bytes;
    int length;         // bytes received
    int answer_offset;  // below 0 when the questions led there
    uint16_t answers;
};

class Name;

// The caller's error code, which may be absent.
class ErrorCode {
  public:
    explicit ErrorCode(int* code) : code_(code) {}
    void succeed() const { store(NETDB_SUCCESS); }
    // Gives -1, so that the last line of a failing function can be `return error.fail(...)`.
    int fail(int error_number, int code) const;

  private:
    void store(int code) const {
        if (code_ != nullptr)
            *code_ = code;
    }
    int* code_;
};

// The results of an unpacking besides the hostent; each may be absent.
struct AnswerOut {
    uint32_t* ttl;
    int* needed;
};

// Writes `name`, at most kLongestQueryName characters, as labels. Gives the bytes written, or -1 for a label
// that has the wrong length.
int encode_name(std::string_view name, std::span<uint8_t> out);

// Writes the whole query; gives its length, or -1.
int build_query(const Query& query, uint16_t id, MessageBuffer& out);

// Sends the query and waits for a response, in two attempts: the bytes received, or -1.
int exchange(const Query& query, std::span<const uint8_t> message, MessageBuffer& answer);

// Examines the header of the received bytes, passes the questions, the last of which leaves its name: 0, or
// -1 with the error set.
int check_response(Response& response, uint16_t id, Name& name, ErrorCode error);

// Build, send, receive, examine the header, pass the questions: 0, or -1 with the error set.
int dns_lookup(const Query& query, Response& response, Name& name, ErrorCode error);

// Lays the answer section out in the caller's buffer; null with the error set when that fails. `name` is the
// one that the questions left, or a new one.
hostent* unpack_answer(const Query& query, const Response& response, Name& name, char* buffer, int length,
                       AnswerOut out, ErrorCode error);

}  // namespace quorvel
