// A thread with lines to work on, which do not wait for each other's threads.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace quorvel::cm {

class Stage {
  public:
    using Lines = std::shared_ptr<const std::string>;

    explicit Stage(std::function<void(const std::string& lines)> work);
    ~Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    // Waits while too much is to be worked on.
    void put_or_wait(const Lines& lines);
    // False when too much is to be worked on, and then nothing has been put.
    bool put(const Lines& lines);
    // Everything is worked on, and the thread has ended. Throws what the work has thrown. False when it takes
    // too long. Called once.
    bool finish(std::chrono::milliseconds patience);

  private:
    void run();

    std::function<void(const std::string& lines)> work_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Lines> queue_;
    size_t bytes_ = 0;
    bool finishing_ = false;
    bool done_ = false;
    std::exception_ptr failure_;
    std::thread thread_;
};

}  // namespace quorvel::cm
