#include "Child.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include "support/Counted.h"

namespace quorvel::test {
namespace {

// Longer than any wait of a test, shorter than what a test may take.
constexpr unsigned kLifeSeconds = 45;
constexpr int kPatienceMs = 20'000;

// As a thread ends that was the only one: a program's main thread would end the process itself.
void end_process(void*) {
    if (is_counted())
        std::exit(0);
    _exit(0);
}

// Runs at the end of the calling thread.
void end_process_with_thread() {
    static pthread_key_t key;
    pthread_key_create(&key, end_process);
    pthread_setspecific(key, &key);
}

}  // namespace

void InChild::say(const std::string& text) const {
    static_cast<void>(!write(findings_, text.data(), text.size()));
}

void InChild::meet() const {
    char byte = '.';
    if (write(steps_, &byte, 1) != 1 || read(steps_, &byte, 1) != 1)
        say("no meeting with the parent\n");
}

Child::Child(const std::function<void(const InChild&)>& body) {
    int steps[2];
    int findings[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, steps) != 0 || pipe2(findings, O_CLOEXEC) != 0)
        throw std::runtime_error("no descriptors for a child");
    steps_ = steps[0];
    findings_ = findings[0];
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        alarm(kLifeSeconds);
        close(steps[0]);
        close(findings[0]);
        body(InChild(steps[1], findings[1]));
        end_process(nullptr);
    }
    close(steps[1]);
    close(findings[1]);
}

Child::~Child() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(steps_);
    close(findings_);
}

bool Child::has_come() const {
    pollfd waiting = {.fd = steps_, .events = POLLIN, .revents = 0};
    char byte = 0;
    return poll(&waiting, 1, kPatienceMs) == 1 && read(steps_, &byte, 1) == 1;
}

void Child::let_it_go_on() const {
    static_cast<void>(!write(steps_, ".", 1));
}

std::string Child::findings() {
    std::string text;
    char part[1024];
    for (ssize_t got = 0; (got = read(findings_, part, sizeof part)) > 0;)
        text.append(part, static_cast<size_t>(got));
    int status = -1;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        text += "ended with status " + std::to_string(status) + "\n";
    return text;
}

ReturningChild::ReturningChild() : pid_(fork()) {
    if (pid_ != 0)
        return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    alarm(kLifeSeconds);
    end_process_with_thread();
}

int ReturningChild::status() const {
    int status = -1;
    waitpid(pid_, &status, 0);
    return status;
}

}  // namespace quorvel::test
