#include "monitor/tap.h"

#include <chrono>

#include "monitor/decode.h"

namespace quorvel::cm {
namespace {

nlohmann::json passing_of(const char* direction, uint32_t client, std::span<const std::byte> head,
                          std::span<const std::byte> rest) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return {{"time", std::chrono::duration_cast<std::chrono::milliseconds>(now).count()},
            {"client", client},
            {"direction", direction},
            {"bytes", to_hex(head) + to_hex(rest)}};
}

}  // namespace

void Tap::show(uint32_t client, const Request& request) {
    if (watchers_.empty())
        return;
    auto passing =
        passing_of("request", client, std::as_bytes(std::span(&request.header, 1)), request.payload);
    passing.update(decode(request));
    tell(passing);
}

void Tap::show(uint32_t client, bool event, const Message& message) {
    if (watchers_.empty())
        return;
    auto passing = passing_of(event ? "event" : "answer", client,
                              std::as_bytes(std::span(&message.record, 1)), message.block);
    passing.update(decode(message, event));
    tell(passing);
}

void Tap::tell(const nlohmann::json& passing) const {
    for (const auto& [key, watcher] : watchers_)
        watcher(passing);
}

}  // namespace quorvel::cm
