// Looks, from a thread of its own, whether a call of the library lasts longer than any may.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "Model.h"

namespace quorvel::lives {

class Watch {
  public:
    explicit Watch(const Model& model) : thread_([this, &model] { look(model); }) {}
    ~Watch() {
        {
            const std::lock_guard lock(mutex_);
            over_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

  private:
    static constexpr std::chrono::seconds kLimit{15};

    void look(const Model& model) const {
        std::unique_lock lock(mutex_);
        while (!changed_.wait_for(lock, std::chrono::milliseconds(200), [this] { return over_; }))
            if (const auto call = model.call_longer_than(kLimit))
                model.object(*call);
    }

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    bool over_ = false;
    std::thread thread_;
};

}  // namespace quorvel::lives
