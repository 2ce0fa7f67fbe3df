#include "server/Stranger.h"

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

namespace quorvel::test {
namespace {

bool does(const std::function<bool()>& act) {
    try {
        return act();
    } catch (const std::exception& error) {
        std::printf("as another user: %s\n", error.what());
        std::fflush(stdout);
        return false;
    }
}

}  // namespace

int as_stranger(const std::function<bool()>& act, const std::function<void()>& meanwhile) {
    const pid_t pid = fork();
    if (pid == 0) {
        const bool another = setgroups(0, nullptr) == 0 && setgid(kStranger) == 0 && setuid(kStranger) == 0;
        _exit(another ? (does(act) ? 0 : 1) : 2);
    }
    meanwhile();
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace quorvel::test
