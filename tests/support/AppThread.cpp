#include "support/AppThread.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace quorvel::test {

AppThread::AppThread() : thread_([this] { live(); }) {
    run([this] { tid_ = static_cast<int32_t>(syscall(SYS_gettid)); });
}

AppThread::~AppThread() {
    wait();
    {
        const std::lock_guard lock(mutex_);
        leaving_ = true;
        changed_.notify_all();
    }
    thread_.join();
}

void AppThread::start(std::function<void()> body) {
    wait();
    const std::lock_guard lock(mutex_);
    body_ = std::move(body);
    changed_.notify_all();
}

void AppThread::wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !body_; });
}

bool AppThread::done(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [this] { return !body_; });
}

void AppThread::live() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return body_ || leaving_; });
        if (leaving_)
            return;
        lock.unlock();
        body_();
        lock.lock();
        body_ = nullptr;
        changed_.notify_all();
    }
}

}  // namespace quorvel::test
