// A program as a process of its own, with what it prints.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace quorvel::test {

struct Ended {
    int status;  // the exit status, or 128 and the number of the signal that ended it
    std::string out;
    std::string err;
};

// Where a program writes its errors: programs may tell a terminal more.
enum class StandardError { kPipe, kTerminal };

// Starts a program; its end is the end of the object at the latest. What it prints is read at once by a
// thread of the object's own, so that a program that prints much never waits for the test. Waiting for
// something that does not come within a time that no sound run needs throws, with all that has been printed.
class Program {
  public:
    explicit Program(const std::vector<std::string>& command, StandardError error = StandardError::kPipe);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t pid() const { return pid_; }
    void send_signal(int number) const;

    // Until standard output, or standard error, holds the text.
    void wait_for_out(std::string_view text);
    void wait_for_err(std::string_view text);
    // Until the program has ended by itself.
    Ended wait();

  private:
    struct Stream {
        int fd = -1;
        bool ended = false;
        std::string text;
    };
    using Lock = std::unique_lock<std::mutex>;

    void read_both();
    void drain(Stream& stream);
    void wait_for(const Stream& stream, std::string_view text);
    void wait_for_more(Lock& lock);
    bool has_ended() const { return out_.ended && err_.ended; }
    [[noreturn]] void give_up(const std::string& why) const;

    std::string name_;
    pid_t pid_ = -1;
    int wake_ = -1;  // an eventfd: readable when the reader shall end
    std::mutex mutex_;
    std::condition_variable grown_;
    Stream out_;
    Stream err_;
    std::thread reader_;
};

// Runs a program to its end.
Ended run(const std::vector<std::string>& command);

}  // namespace quorvel::test
