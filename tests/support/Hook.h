// A place where a test can hang in something to be done, on whatever thread comes by.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace quorvel::test {

template <class... Args>
class HookPlace {
  public:
    using Function = std::function<void(Args...)>;

    void set(Function function) {
        const std::lock_guard lock(mutex_);
        function_ = std::make_shared<const Function>(std::move(function));
    }

    // Waits for the threads that are in the function: what it refers to may go afterwards.
    void clear() {
        std::unique_lock lock(mutex_);
        function_.reset();
        left_.wait(lock, [this] { return running_ == 0; });
    }

    void run(Args... args) {
        const std::shared_ptr<const Function> function = enter();
        if (function == nullptr)
            return;
        (*function)(args...);
        const std::lock_guard lock(mutex_);
        --running_;
        left_.notify_all();
    }

    // For a process that forks.
    std::mutex& mutex() { return mutex_; }

  private:
    std::shared_ptr<const Function> enter() {
        const std::lock_guard lock(mutex_);
        if (function_ != nullptr)
            ++running_;
        return function_;
    }

    std::mutex mutex_;
    std::condition_variable left_;
    std::shared_ptr<const Function> function_;
    int running_ = 0;
};

// Hangs a function in as long as the object lives, which is to be declared behind everything that the
// function refers to. Not to be destroyed from inside the function.
template <class... Args>
class [[nodiscard]] Hook {
  public:
    Hook(HookPlace<Args...>& place, typename HookPlace<Args...>::Function function) : place_(place) {
        place_.set(std::move(function));
    }
    ~Hook() { place_.clear(); }
    Hook(const Hook&) = delete;
    Hook& operator=(const Hook&) = delete;

  private:
    HookPlace<Args...>& place_;
};

}  // namespace quorvel::test
