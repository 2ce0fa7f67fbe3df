#include "Responder.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

#include "Server.h"

namespace quorvel::bench {
namespace {

constexpr size_t kAnswerBytes = 195;
constexpr uint16_t kTypeAddress = 1;
constexpr uint16_t kTypeAlias = 5;

void put16(Message& message, unsigned value) {
    message.push_back(static_cast<uint8_t>(value >> 8));
    message.push_back(static_cast<uint8_t>(value));
}

void put_name(Message& message, const std::string& name) {
    for (size_t start = 0; start < name.size();) {
        const size_t end = std::min(name.find('.', start), name.size());
        message.push_back(static_cast<uint8_t>(end - start));
        message.insert(message.end(), name.begin() + static_cast<std::ptrdiff_t>(start),
                       name.begin() + static_cast<std::ptrdiff_t>(end));
        start = end + 1;
    }
    message.push_back(0);
}

void put_record_head(Message& message, unsigned type, unsigned length) {
    put16(message, type);
    put16(message, 1);
    put16(message, 0);
    put16(message, 300);
    put16(message, length);
}

Message header_and_question(unsigned flags, unsigned answers) {
    Message message{0, 0};
    put16(message, flags);
    put16(message, 1);
    put16(message, answers);
    put16(message, 0);
    put16(message, 0);
    put_name(message, kHostName);
    put16(message, kTypeAddress);
    put16(message, 1);
    return message;
}

}  // namespace

Message query_message() {
    return header_and_question(0x0100, 0);
}

// The name of the alias makes up for what is missing to the length.
Message answer_message() {
    constexpr unsigned kAddresses = kHostAddresses;
    constexpr size_t kAddressRecordBytes = 2 + 10 + 4;
    Message message = header_and_question(0x8180, 1 + kAddresses);
    put16(message, 0xc00c);
    const size_t rest = kAnswerBytes - message.size() - 10 - kAddresses * kAddressRecordBytes;
    put_record_head(message, kTypeAlias, static_cast<unsigned>(rest));
    const size_t target = message.size();
    const std::string tail = ".content-delivery.example.net";
    put_name(message, std::string(rest - 2 - tail.size(), 'e') + tail);
    for (unsigned i = 0; i < kAddresses; ++i) {
        put16(message, 0xc000 | static_cast<unsigned>(target));
        put_record_head(message, kTypeAddress, 4);
        for (const unsigned byte : {192u, 0u, 2u, 1 + i})
            message.push_back(static_cast<uint8_t>(byte));
    }
    if (message.size() != kAnswerBytes)
        throw std::logic_error("the answer has the wrong length");
    return message;
}

Responder::Responder() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(53);
    address.sin_addr.s_addr = inet_addr(kNameServer);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::system_error(errno, std::generic_category(), "the name server's socket");
    pid_ = start_helper([fd] {
        constexpr size_t kIdBytes = 2;
        constexpr size_t kHeaderBytes = 12;
        const size_t query_bytes = query_message().size();
        Message answer = answer_message();
        uint8_t query[512];
        for (;;) {
            sockaddr_in peer{};
            socklen_t length = sizeof peer;
            const ssize_t got =
                recvfrom(fd, query, sizeof query, 0, reinterpret_cast<sockaddr*>(&peer), &length);
            // Of another length, the question would move the names that the records refer to.
            if (got != static_cast<ssize_t>(query_bytes))
                continue;
            std::copy_n(query, kIdBytes, answer.begin());
            std::copy(query + kHeaderBytes, query + query_bytes, answer.begin() + kHeaderBytes);
            sendto(fd, answer.data(), answer.size(), 0, reinterpret_cast<const sockaddr*>(&peer), length);
        }
    });
    close(fd);
}

Responder::~Responder() {
    end_helper(pid_);
}

}  // namespace quorvel::bench
