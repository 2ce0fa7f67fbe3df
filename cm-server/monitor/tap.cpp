#include "monitor/tap.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <utility>

#include "monitor/decode.h"

namespace quorvel::cm {
namespace {

constexpr std::chrono::milliseconds kTogether{10};
// So much is not kept until then.
constexpr size_t kEnough = size_t{256} * 1024;

}  // namespace

void Tap::attach(const void* key, Watcher watcher) {
    tell();
    watchers_[key] = std::move(watcher);
}

void Tap::detach(const void* key) {
    watchers_.erase(key);
}

void Tap::show(uint32_t client, const Request& request) {
    add("request", client, std::as_bytes(std::span(&request.header, 1)), request.payload);
}

void Tap::show(uint32_t client, bool event, const Message& message) {
    add(event ? "event" : "answer", client, std::as_bytes(std::span(&message.record, 1)), message.block);
}

void Tap::add(const char* direction, uint32_t client, std::span<const std::byte> head,
              std::span<const std::byte> rest) {
    if (watchers_.empty())
        return;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    std::array<char, 128> start{};
    std::snprintf(start.data(), start.size(), R"({"time":%lld,"client":%u,"direction":"%s","bytes":")",
                  static_cast<long long>(time), client, direction);
    lines_.append(start.data()).append(to_hex(head)).append(to_hex(rest)).append("\"}\n");
    if (lines_.size() > kEnough)
        tell();
    else if (!due_.running())
        due_.start(kTogether);
}

void Tap::tell() {
    due_.stop();
    const std::string lines = std::exchange(lines_, {});
    if (lines.empty())
        return;
    for (const auto& [key, watcher] : watchers_)
        watcher(lines);
}

}  // namespace quorvel::cm
