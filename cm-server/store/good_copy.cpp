#include "store/good_copy.h"

#include <csignal>

#include "guard.h"
#include "log.h"
#include "store/rescue.h"

namespace quorvel::cm {
namespace {

constexpr std::chrono::milliseconds kLookAgain{20};

// The signals are the loop's.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

  private:
    sigset_t before_{};
};

}  // namespace

GoodCopy::GoodCopy(event_base* base, Store& store, std::chrono::milliseconds after)
    : store_(store),
      after_(after),
      due_(base, [this] { renew(); }),
      look_(base, [this] { look_whether_done(); }) {
    store_.watch_changes(this);
}

GoodCopy::~GoodCopy() {
    store_.watch_changes(nullptr);
    if (worker_.joinable())
        worker_.join();
}

void GoodCopy::on_change() {
    changed_ = true;
    if (!due_.running() && !worker_.joinable())
        due_.start(after_);
}

void GoodCopy::renew() {
    changed_ = false;
    done_ = false;
    failure_.clear();
    const SignalsBlocked blocked;
    worker_ = std::thread([this, path = store_.path()] {
        try {
            make_good_copy(path);
        } catch (const std::exception& error) {
            failure_ = words_of(error);
        }
        done_ = true;
    });
    look_.start(kLookAgain);
}

void GoodCopy::look_whether_done() {
    if (!done_)
        return look_.start(kLookAgain);
    worker_.join();
    if (failure_.empty())
        log::debug("the good copy of the database has been renewed");
    else
        log::error("the good copy of the database stays as it was: ", failure_);
    if (changed_)
        due_.start(after_);
}

}  // namespace quorvel::cm
