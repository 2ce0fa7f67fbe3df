// A thread that can be cancelled while it runs a body.
#pragma once

#include <pthread.h>

#include <atomic>
#include <functional>
#include <utility>

namespace quorvel::test {

class Cancellable {
  public:
    explicit Cancellable(std::function<void()> body) : body_(std::move(body)) {
        pthread_create(&thread_, nullptr, run, this);
    }

    void cancel() { pthread_cancel(thread_); }

    // Waits for the thread. Whether it ran the body to its end, and was cancelled right behind it.
    bool ended_behind_the_body() {
        void* result = nullptr;
        pthread_join(thread_, &result);
        return done_ && result == PTHREAD_CANCELED;
    }

  private:
    static void* run(void* self) {
        auto* cancellable = static_cast<Cancellable*>(self);
        cancellable->body_();
        cancellable->done_ = true;
        pthread_testcancel();
        return nullptr;
    }

    std::function<void()> body_;
    std::atomic<bool> done_{false};
    pthread_t thread_{};
};

}  // namespace quorvel::test
