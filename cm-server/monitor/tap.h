// A window on the wire: whoever watches sees every request, answer and event as it passes.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>

#include "protocol/message.h"
#include "protocol/request.h"

namespace quorvel::cm {

class Tap {
  public:
    using Watcher = std::function<void(const nlohmann::json& passing)>;

    void attach(const void* key, Watcher watcher) { watchers_[key] = std::move(watcher); }
    void detach(const void* key) { watchers_.erase(key); }

    // Nothing is decoded while nobody watches.
    void show(uint32_t client, const Request& request);
    void show(uint32_t client, bool event, const Message& message);

  private:
    void tell(const nlohmann::json& passing) const;

    std::map<const void*, Watcher> watchers_;
};

}  // namespace quorvel::cm
