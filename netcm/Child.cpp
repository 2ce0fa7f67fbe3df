#include "Child.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "Status.h"

namespace quorvel::netcm {
namespace {

std::vector<std::string> environment_with(const Environment& more) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('='));
        const auto is_same = [&](const auto& variable) { return variable.first == name; };
        if (std::ranges::none_of(more, is_same)) {
            result.push_back(text);
        }
    }
    for (const auto& [name, value] : more) {
        std::string& text = result.emplace_back(name);
        text += '=';
        text += value;
    }
    return result;
}

std::vector<char*> pointers_to(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

// With no signal blocked: netcm has those blocked that it waits for itself.
pid_t spawn(const std::vector<std::string>& command, const std::vector<std::string>& environment) {
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setsigmask(&attributes, &none);
    pid_t pid = -1;
    const int error = posix_spawnp(&pid, command[0].c_str(), nullptr, &attributes,
                                   pointers_to(command).data(), pointers_to(environment).data());
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        throw Failure("cannot run " + command[0] + ": " + std::strerror(error));
    }
    return pid;
}

}  // namespace

Child::Child(const std::vector<std::string>& command, const Environment& more, std::function<void()> ended)
    : pid_(spawn(command, environment_with(more))) {
    waiter_ = std::thread([this, ended = std::move(ended)] {
        // The process stays until it has been asked for, so that its number is nobody else's meanwhile.
        siginfo_t info{};
        while (waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
        }
        ended_ = true;
        ended();
    });
}

Child::~Child() {
    if (waiter_.joinable()) {
        waiter_.join();
        waitpid(pid_, nullptr, 0);
    }
}

void Child::send_signal(int number) const {
    kill(pid_, number);
}

int Child::status() {
    waiter_.join();
    int status = 0;
    waitpid(pid_, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace quorvel::netcm
