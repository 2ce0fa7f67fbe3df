#include "monitor/stage.h"

#include <utility>

namespace quorvel::cm {
namespace {

constexpr size_t kMost = size_t{256} * 1024 * 1024;

}  // namespace

Stage::Stage(std::function<void(const std::string& lines)> work)
    : work_(std::move(work)), thread_([this] { run(); }) {}

Stage::~Stage() {
    {
        const std::lock_guard lock(mutex_);
        finishing_ = true;
        queue_.clear();
        changed_.notify_all();
    }
    if (thread_.joinable())
        thread_.join();
}

void Stage::put_or_wait(const Lines& lines) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return bytes_ < kMost || done_; });
    queue_.push_back(lines);
    bytes_ += lines->size();
    changed_.notify_all();
}

bool Stage::put(const Lines& lines) {
    const std::lock_guard lock(mutex_);
    if (bytes_ >= kMost)
        return false;
    queue_.push_back(lines);
    bytes_ += lines->size();
    changed_.notify_all();
    return true;
}

bool Stage::finish(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    finishing_ = true;
    changed_.notify_all();
    // As long as it gets on, it has the time.
    for (size_t left = bytes_; !done_; left = bytes_)
        if (!changed_.wait_for(lock, patience, [&] { return done_ || bytes_ != left; }))
            return false;
    lock.unlock();
    thread_.join();
    if (failure_)
        std::rethrow_exception(std::exchange(failure_, nullptr));
    return true;
}

void Stage::run() {
    std::unique_lock lock(mutex_);
    try {
        for (;;) {
            changed_.wait(lock, [this] { return finishing_ || !queue_.empty(); });
            if (queue_.empty())
                break;
            const Lines lines = queue_.front();
            queue_.pop_front();
            lock.unlock();
            work_(*lines);
            lock.lock();
            bytes_ -= lines->size();
            changed_.notify_all();
        }
    } catch (...) {
        if (!lock.owns_lock())
            lock.lock();
        failure_ = std::current_exception();
    }
    done_ = true;
    changed_.notify_all();
}

}  // namespace quorvel::cm
