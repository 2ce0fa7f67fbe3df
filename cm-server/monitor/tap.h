// A window on the wire: whoever watches sees every request, answer and event as it passes.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>

#include "events.h"
#include "protocol/message.h"
#include "protocol/request.h"

namespace quorvel::cm {

class Tap {
  public:
    // Is given whole lines of JSON, several at a time.
    using Watcher = std::function<void(const std::string& lines)>;

    explicit Tap(event_base* base) : due_(base, [this] { tell(); }) {}

    void attach(const void* key, Watcher watcher);
    void detach(const void* key);

    // What passes is neither decoded nor sent on at once: those who are served do not wait for those who
    // watch.
    void show(uint32_t client, const Request& request);
    void show(uint32_t client, bool event, const Message& message);

  private:
    void add(const char* direction, uint32_t client, std::span<const std::byte> head,
             std::span<const std::byte> rest);
    void tell();

    std::map<const void*, Watcher> watchers_;
    std::string lines_;
    Timer due_;
};

}  // namespace quorvel::cm
