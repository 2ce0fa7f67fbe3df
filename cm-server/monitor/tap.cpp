#include "monitor/tap.h"

#include <chrono>
#include <utility>

#include "monitor/decode.h"

namespace quorvel::cm {
namespace {

constexpr std::chrono::milliseconds kTogether{2};
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
    lines_ += "{\"time\":" + std::to_string(time) + ",\"client\":" + std::to_string(client) +
              ",\"direction\":\"" + direction + "\",\"bytes\":\"" + to_hex(head) + to_hex(rest) + "\"}\n";
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
