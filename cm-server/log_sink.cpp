#include "log_sink.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

#include "log.h"

namespace quorvel::cm::log {
namespace {

// Of lines that wait; what comes then is lost.
constexpr size_t kMost = size_t{256} * 1024;
constexpr int kFarewellMs = 200;

mode_t kind_of(int fd) {
    struct stat found {};
    return fstat(fd, &found) == 0 ? found.st_mode & S_IFMT : 0;
}

}  // namespace

Sink::Sink() : kind_(kind_of(STDERR_FILENO)) {
    // Opened once more: to make the given stream non-blocking would make it so for others who have it, the
    // shell among them. What cannot be opened is asked before each write.
    if (kind_ == S_IFIFO || kind_ == S_IFCHR)
        own_ = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
}

size_t Sink::put(const char* bytes, size_t size) const {
    ssize_t done = -1;
    if (own_ >= 0) {
        done = ::write(own_, bytes, size);
    } else if (kind_ == S_IFSOCK) {
        done = send(STDERR_FILENO, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    } else if (kind_ == S_IFREG) {
        done = ::write(STDERR_FILENO, bytes, size);
    } else {
        pollfd ready{STDERR_FILENO, POLLOUT, 0};
        // A pipe that is ready takes as much as this.
        if (poll(&ready, 1, 0) == 1)
            done = ::write(STDERR_FILENO, bytes, std::min<size_t>(size, PIPE_BUF));
    }
    return done < 0 ? 0 : static_cast<size_t>(done);
}

void Sink::put_rest() {
    size_t done = 0;
    while (!rest_.empty() && (done = put(rest_.data(), rest_.size())) > 0)
        rest_.erase(0, done);
}

void Sink::write(const std::string& line) {
    if (rest_.empty() && lost_ == 0) {
        const size_t done = put(line.data(), line.size());
        rest_ = line.substr(done);
    } else if (lost_ == 0 && rest_.size() + line.size() <= kMost) {
        rest_ += line;
    } else {
        ++lost_;
    }
}

void Sink::try_again() {
    put_rest();
    if (!rest_.empty() || lost_ == 0)
        return;
    const uint64_t lost = lost_;
    lost_ = 0;
    error(lost, " lines of this log could not be written, nobody has read them");
}

void Sink::finish() {
    for (int i = 0; waiting() && i < 2; ++i) {
        pollfd ready{STDERR_FILENO, POLLOUT, 0};
        if (poll(&ready, 1, kFarewellMs) != 1)
            return;
        try_again();
    }
}

}  // namespace quorvel::cm::log
