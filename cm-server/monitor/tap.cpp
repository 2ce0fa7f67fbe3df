#include "monitor/tap.h"

#include <chrono>
#include <memory>
#include <utility>

namespace quorvel::cm {
namespace {

constexpr std::chrono::milliseconds kTogether{10};
// So much is not kept until then.
constexpr size_t kEnoughLines = size_t{256} * 1024;

}  // namespace

void Tap::attach(const void* key, Watcher watcher) {
    tell();
    watcher(present());
    watchers_[key] = std::move(watcher);
}

void Tap::detach(const void* key) {
    watchers_.erase(key);
}

void Tap::record(const RecordPlan& plan) {
    recorder_ = std::make_unique<Recorder>(base_, plan, [this] {
        for (const nlohmann::json& note : present_())
            recorder_->take(make_note(note).passing());
    });
}

Lines Tap::present() const {
    Lines lines;
    for (const nlohmann::json& note : present_())
        append_line(lines.text, make_note(note).passing());
    return lines;
}

Passing Tap::next(PassingKind kind, uint32_t client) {
    Passing passing;
    passing.number = number_;
    passing.time = microseconds_now();
    passing.client = client;
    passing.kind = kind;
    return passing;
}

void Tap::show(uint32_t client, const Request& request) {
    ++number_;
    if (!watched())
        return;
    const Secrets secrets = secrets_of(request);
    Passing passing = next(PassingKind::kRequest, client);
    passing.head = std::as_bytes(std::span(&request.header, 1));
    passing.rest = request.payload;
    passing.secrets = secrets;
    add(passing);
}

void Tap::show(uint32_t client, bool event, const Message& sent, const Message& meant,
               std::chrono::milliseconds delay) {
    ++number_;
    if (!watched())
        return;
    const Secrets secrets = secrets_of(meant);
    Passing passing = next(event ? PassingKind::kEvent : PassingKind::kAnswer, client);
    passing.time += std::chrono::microseconds(delay).count();
    passing.head = std::as_bytes(std::span(&sent.record, 1));
    passing.rest = sent.block;
    passing.secrets = secrets;
    add(passing);
}

void Tap::note(const std::function<nlohmann::json()>& make) {
    ++number_;
    if (!watched())
        return;
    const nlohmann::json note = make();
    const Kept kept = make_note(note);
    Passing passing = next(PassingKind::kNote, note.value("client", 0U));
    passing.head = kept.bytes;
    add(passing);
}

void Tap::add(const Passing& passing) {
    if (recorder_)
        recorder_->take(passing);
    if (watchers_.empty())
        return;
    append_line(lines_.text, passing);
    ++lines_.count;
    lines_.first = lines_.first == 0 ? passing.number : lines_.first;
    lines_.last = passing.number;
    if (lines_.text.size() > kEnoughLines)
        tell();
    else if (!due_.running())
        due_.start(kTogether);
}

void Tap::tell() {
    due_.stop();
    const Lines lines = std::exchange(lines_, {});
    if (lines.text.empty())
        return;
    for (const auto& [key, watcher] : watchers_)
        watcher(lines);
}

}  // namespace quorvel::cm
