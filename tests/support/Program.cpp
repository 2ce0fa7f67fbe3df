#include "support/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include "support/Counted.h"
#include "support/Eventually.h"

namespace quorvel::test {
namespace {

constexpr std::chrono::seconds kPatience(50);  // of silence

bool ends_by_itself(pid_t pid) {
    kill(pid, SIGTERM);
    return eventually([=] { return waitpid(pid, nullptr, WNOHANG) == pid; }, std::chrono::seconds(5));
}

int checked(int result, const char* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

// What a program writes to: it gets the second end, which is closed here when it has been started.
struct Pipe {
    std::array<int, 2> ends{-1, -1};

    explicit Pipe(StandardError kind = StandardError::kPipe) {
        if (kind == StandardError::kPipe) {
            checked(pipe2(ends.data(), O_CLOEXEC), "pipe2");
        } else {
            open_terminal();
        }
    }
    ~Pipe() { close(ends[1]); }

    void open_terminal() {
        ends[0] = checked(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
        checked(unlockpt(ends[0]), "unlockpt");
        std::array<char, 64> name{};
        if (const int error = ptsname_r(ends[0], name.data(), name.size()); error != 0) {
            throw std::system_error(error, std::generic_category(), "ptsname_r");
        }
        ends[1] = checked(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC), name.data());
    }
};

std::vector<char*> as_argv(const std::vector<std::string>& command) {
    std::vector<char*> argv;
    for (const std::string& word : command) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    return argv;
}

// The programs of a build for another machine are run by its emulator.
std::vector<std::string> runnable(std::vector<std::string> command) {
    const std::vector<std::string> emulator{QUORVEL_EMULATOR};
    const auto ours = std::find_if(command.begin(), command.end(), [](const std::string& word) {
        return word.starts_with(QUORVEL_PROGRAMS);
    });
    if (ours != command.end())
        command.insert(ours, emulator.begin(), emulator.end());
    return command;
}

pid_t spawn(const std::vector<std::string>& asked, int out, int err) {
    const std::vector<std::string> command = runnable(asked);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out, 1);
    posix_spawn_file_actions_adddup2(&actions, err, 2);
    pid_t pid = -1;
    const int error =
        posix_spawnp(&pid, command[0].c_str(), &actions, nullptr, as_argv(command).data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), command[0]);
    }
    return pid;
}

}  // namespace

Program::Program(const std::vector<std::string>& command, StandardError error) : name_(command.at(0)) {
    const Pipe out;
    const Pipe err(error);
    out_.fd = out.ends[0];
    err_.fd = err.ends[0];
    pid_ = spawn(command, out.ends[1], err.ends[1]);
    wake_ = eventfd(0, EFD_CLOEXEC);
    reader_ = std::thread([this] { read_both(); });
}

Program::~Program() {
    if (pid_ > 0 && !(is_counted() && ends_by_itself(pid_))) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    // A program that it has started may hold the streams open.
    eventfd_write(wake_, 1);
    reader_.join();
    close(wake_);
    close(out_.fd);
    close(err_.fd);
}

void Program::send_signal(int number) const {
    kill(pid_, number);
}

void Program::wait_for_out(std::string_view text) {
    wait_for(out_, text);
}
void Program::wait_for_err(std::string_view text) {
    wait_for(err_, text);
}

void Program::wait_for(const Stream& stream, std::string_view text) {
    // Where the text may begin that has not been seen yet: a flood is not searched again and again.
    size_t from = 0;
    Lock lock(mutex_);
    while (stream.text.find(text, from) == std::string::npos) {
        from = stream.text.size() - std::min(stream.text.size(), text.size());
        if (has_ended()) {
            give_up("it ended without printing \"" + std::string(text) + '"');
        }
        wait_for_more(lock);
    }
}

Ended Program::wait() {
    Lock lock(mutex_);
    while (!has_ended()) {
        wait_for_more(lock);
    }
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), out_.text, err_.text};
}

void Program::wait_for_more(Lock& lock) {
    if (grown_.wait_for(lock, kPatience) == std::cv_status::timeout) {
        give_up("nothing happens any more");
    }
}

void Program::read_both() {
    while (!has_ended()) {
        // A negative descriptor is left out.
        std::array<pollfd, 3> ready{pollfd{wake_, POLLIN, 0}, pollfd{out_.ended ? -1 : out_.fd, POLLIN, 0},
                                    pollfd{err_.ended ? -1 : err_.fd, POLLIN, 0}};
        poll(ready.data(), ready.size(), -1);
        if (ready[0].revents != 0) {
            return;
        }
        if (ready[1].revents != 0) {
            drain(out_);
        }
        if (ready[2].revents != 0) {
            drain(err_);
        }
    }
}

void Program::drain(Stream& stream) {
    std::array<char, 4096> buffer;
    const ssize_t count = read(stream.fd, buffer.data(), buffer.size());
    const Lock lock(mutex_);
    if (count > 0) {
        stream.text.append(buffer.data(), static_cast<size_t>(count));
    } else {
        stream.ended = true;
    }
    grown_.notify_all();
}

void Program::give_up(const std::string& why) const {
    throw std::runtime_error(name_ + ": " + why + "\nstandard output:\n" + out_.text + "standard error:\n" +
                             err_.text);
}

Ended run(const std::vector<std::string>& command) {
    return Program(command).wait();
}

}  // namespace quorvel::test
