// A command that netcm runs beside itself.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace quorvel::netcm {

using Environment = std::vector<std::pair<std::string, std::string>>;

class Child {
  public:
    // Starts it with these variables beside netcm's own. `ended` is called on a thread of its own when it has
    // ended. Throws a Failure.
    Child(const std::vector<std::string>& command, const Environment& more, std::function<void()> ended);
    // Waits for it.
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    bool has_ended() const { return ended_; }
    void send_signal(int number) const;
    // Waits for its end, and gives its exit status as a shell does: 128 and the number of the signal that
    // ended it.
    int status();

  private:
    pid_t pid_ = -1;
    std::atomic<bool> ended_ = false;
    std::thread waiter_;
};

}  // namespace quorvel::netcm
