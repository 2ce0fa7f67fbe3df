#include "EventQueue.h"

#include <utility>

namespace quorvel::netcm {

Deadline in(std::chrono::duration<double> time) {
    using Clock = std::chrono::steady_clock;
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(time);
}

bool has_passed(Deadline deadline) {
    return deadline && std::chrono::steady_clock::now() >= *deadline;
}

void EventQueue::push(Event event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
    changed_.notify_all();
}

void EventQueue::interrupt() {
    const std::lock_guard lock(mutex_);
    interrupted_ = true;
    changed_.notify_all();
}

bool EventQueue::interrupted() const {
    const std::lock_guard lock(mutex_);
    return interrupted_;
}

std::optional<Event> EventQueue::next(Deadline deadline, OnInterrupt on_interrupt) {
    std::unique_lock lock(mutex_);
    const auto stopped = [&] { return interrupted_ && on_interrupt == OnInterrupt::kReturn; };
    const auto ready = [&] { return !events_.empty() || stopped(); };
    if (!deadline) {
        changed_.wait(lock, ready);
    } else {
        changed_.wait_until(lock, *deadline, ready);
    }
    if (events_.empty() || stopped()) {
        return std::nullopt;
    }
    Event event = std::move(events_.front());
    events_.pop_front();
    return event;
}

}  // namespace quorvel::netcm
