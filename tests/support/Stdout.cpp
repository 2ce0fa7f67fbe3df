#include "support/Stdout.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace quorvel::test {

std::string stdout_of(const std::function<void()>& body) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return "no pipe";
    fflush(stdout);
    const int before = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    body();
    fflush(stdout);
    dup2(before, STDOUT_FILENO);
    close(before);

    std::string text;
    char part[4096];
    for (ssize_t got = 0; (got = read(ends[0], part, sizeof part)) > 0;)
        text.append(part, static_cast<size_t>(got));
    close(ends[0]);
    return text;
}

}  // namespace quorvel::test
