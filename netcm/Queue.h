// The way from other threads to the main thread: of events, answers and interrupts.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace quorvel::netcm {

using Deadline = std::optional<std::chrono::steady_clock::time_point>;

Deadline in(std::chrono::duration<double> time);
bool has_passed(Deadline deadline);

enum class OnInterrupt { kReturn, kKeepWaiting };

template <class Item>
class Queue {
  public:
    // From the thread that delivers.
    void push(Item item) {
        const std::lock_guard lock(mutex_);
        items_.push_back(std::move(item));
        changed_.notify_all();
    }

    // From the thread that watches for signals.
    void interrupt() {
        const std::lock_guard lock(mutex_);
        interrupted_ = true;
        changed_.notify_all();
    }

    bool interrupted() const {
        const std::lock_guard lock(mutex_);
        return interrupted_;
    }

    // The next item, at once when there is one; nothing when the deadline has passed, or after an interrupt.
    // No deadline waits for ever.
    std::optional<Item> next(Deadline deadline, OnInterrupt on_interrupt = OnInterrupt::kReturn) {
        std::unique_lock lock(mutex_);
        const auto stopped = [&] { return interrupted_ && on_interrupt == OnInterrupt::kReturn; };
        const auto ready = [&] { return !items_.empty() || stopped(); };
        if (!deadline) {
            changed_.wait(lock, ready);
        } else {
            changed_.wait_until(lock, *deadline, ready);
        }
        if (items_.empty() || stopped()) {
            return std::nullopt;
        }
        Item item = std::move(items_.front());
        items_.pop_front();
        return item;
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Item> items_;
    bool interrupted_ = false;
};

}  // namespace quorvel::netcm
