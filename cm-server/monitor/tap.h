// A window on the wire: whoever watches sees every request, answer and event as it passes.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "events.h"
#include "protocol/message.h"
#include "protocol/request.h"
#include "record/passing.h"
#include "record/recorder.h"

namespace quorvel::cm {

// Whole lines of JSON, and the numbers of the first and the last of them.
struct Lines {
    std::string text;
    uint64_t count = 0;
    uint64_t first = 0;
    uint64_t last = 0;
};

class Tap {
  public:
    using Watcher = std::function<void(const Lines& lines)>;
    // What somebody who begins to watch is told: who is there, and what is going on.
    using Present = std::function<std::vector<nlohmann::json>()>;

    explicit Tap(event_base* base) : base_(base), due_(base, [this] { tell(); }) {}
    void use(Present present) { present_ = std::move(present); }

    void attach(const void* key, Watcher watcher);
    void detach(const void* key);
    // Everything is recorded from here on. Throws RecordError.
    void record(const RecordPlan& plan);

    // What passes is neither decoded nor sent on at once: those who are served do not wait for those who
    // watch.
    void show(uint32_t client, const Request& request);
    // `meant` is what has become `sent`, which goes out after the delay.
    void show(uint32_t client, bool event, const Message& sent, const Message& meant,
              std::chrono::milliseconds delay = {});
    // What happens beside the messages: {"note": "gone", "client": 1, ...}. Made when somebody watches.
    void note(const std::function<nlohmann::json()>& make);
    // What waits is told now.
    void tell();
    bool watched() const { return recorder_ != nullptr || !watchers_.empty(); }

  private:
    Passing next(PassingKind kind, uint32_t client);
    void add(const Passing& passing);
    Lines present() const;

    event_base* base_;
    Present present_;
    std::map<const void*, Watcher> watchers_;
    std::unique_ptr<Recorder> recorder_;
    uint64_t number_ = 0;
    Lines lines_;
    Timer due_;
};

}  // namespace quorvel::cm
