// A thread of an application: it lives until the test lets it go, and does one thing after another.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace quorvel::test {

class AppThread {
  public:
    AppThread();
    ~AppThread();
    AppThread(const AppThread&) = delete;
    AppThread& operator=(const AppThread&) = delete;

    // Runs on the thread; returns its result when it is done.
    template <class Body>
    auto run(Body body) {
        using Result = decltype(body());
        if constexpr (std::is_void_v<Result>) {
            start(body);
            wait();
        } else {
            Result result{};
            start([&] { result = body(); });
            wait();
            return result;
        }
    }

    // The same without waiting, for calls that block; wait() waits for it.
    void start(std::function<void()> body);
    void wait();
    // Whether what was started is done.
    bool done(std::chrono::milliseconds patience = std::chrono::milliseconds(0));

    // Kernel thread id.
    int32_t tid() const { return tid_; }

  private:
    void live();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::function<void()> body_;
    bool leaving_ = false;
    int32_t tid_ = 0;
    std::thread thread_;
};

}  // namespace quorvel::test
