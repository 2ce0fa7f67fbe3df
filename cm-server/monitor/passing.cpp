#include "monitor/passing.h"

#include <algorithm>
#include <cstring>

#include "control/arguments.h"
#include "monitor/decode.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

Request request_of(std::span<const std::byte> bytes) {
    RequestReader reader;
    reader.feed(bytes);
    return reader.next().value_or(Request{});
}

Message message_of(std::span<const std::byte> bytes) {
    Message message;
    const size_t size = std::min(bytes.size(), sizeof(message.record));
    std::memcpy(&message.record, bytes.data(), size);
    message.block.assign(bytes.begin() + static_cast<ptrdiff_t>(size), bytes.end());
    return message;
}

}  // namespace

json decoded(const std::string& direction, std::span<const std::byte> content) {
    const json result = direction == "request" ? decode(request_of(content))
                                               : decode(message_of(content), direction == "event");
    // Bytes that a client has sent as text need not be text.
    return json::parse(to_line(result));
}

json decoded(const json& passing) {
    json result = passing;
    result.update(decoded(passing.at("direction").get<std::string>(), bytes(passing.at("bytes"))));
    return result;
}

}  // namespace quorvel::cm
