#include "client/CM/src/NetCMClientInternal/Reading.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "common/KeepErrno.h"
#include "common/Trace.h"

namespace quorvel {
namespace {

constexpr int32_t kWriteLimitMs = 60'000;

// The sink of the traces may change errno; what reports an error behind them shall not.
struct SyncTraces {
    static constexpr int32_t kLimitMs = kSyncLimitMs;
    static void polled(int result) {
        const KeepErrno keep;
        QV_TRACE(2, "POLL ret = %d,  \n", result);
    }
    static void timed_out() {
        const KeepErrno keep;
        QV_TRACE(2, "POLLing timeout  \n");
    }
    static void failed() {
        const KeepErrno keep;
        QV_TRACE(3, "Polling unknown error. Error = [%s] \n", strerror(errno));
    }
    static void read(int fd, int result) {
        const KeepErrno keep;
        QV_TRACE(0, "socket FD = [%d] Retval = [%d]\n", fd, result);
    }
};

struct BlockTraces {
    static constexpr int32_t kLimitMs = kBlockLimitMs;
    static void polled(int result) {
        const KeepErrno keep;
        QV_TRACE(0, "POLL ret = %d,  \n", result);
    }
    static void timed_out() {
        const KeepErrno keep;
        QV_TRACE(3, "POLLing timeout  \n");
    }
    static void failed() {
        const KeepErrno keep;
        QV_TRACE(3, "Polling unknown error \n");
    }
    static void read(int fd, int result) {
        const KeepErrno keep;
        QV_TRACE(0, "sockfd %d retval %d\n", fd, result);
    }
};

void trace_events(uint32_t level, const char* text) {
    const KeepErrno keep;
    QV_TRACE(level, "%s", text);
}

// The limit is for the whole, so the rest has what the first wait has left. Waits behind it are not traced.
template <class Traces>
Reading read_until_full(int fd, char* buf, size_t len, const Deadline& deadline, Signals signals,
                        ReadSome read_some) {
    size_t total = 0;
    while (total < len) {
        if (total > 0) {
            short events = 0;
            const int32_t left = deadline.left_ms();
            const int ready = left > 0 ? wait_to_read(fd, left, signals, events) : 0;
            if (ready == 0) {
                Traces::timed_out();
                return {0, ReadEnd::TimedOut, total, deadline};
            }
            if (ready < 0) {
                Traces::failed();
                return {-1, ReadEnd::Broken, total, deadline};
            }
        }
        const ssize_t got = read_some(fd, buf + total, len - total);
        Traces::read(fd, static_cast<int>(got));
        if (got <= 0)
            return {static_cast<int32_t>(got), got == 0 ? ReadEnd::Closed : ReadEnd::Failed, total, deadline};
        total += static_cast<size_t>(got);
    }
    return {static_cast<int32_t>(total), ReadEnd::Done, total, deadline};
}

template <class Traces>
Reading read_with(int fd, void* buf, size_t len, Signals signals, ReadSome read_some) {
    if (buf == nullptr) {
        QV_TRACE(5, "NULL pointer variable passed\n");
        return {};
    }
    if (fd < 1) {
        QV_TRACE(5, "Invalid socket FD [%d]\n", fd);
        return {};
    }
    const Deadline deadline = Deadline::in(Traces::kLimitMs);
    errno = 0;
    short events = 0;
    const int ready = wait_to_read(fd, Traces::kLimitMs, signals, events);
    Traces::polled(ready);
    if (ready == 0) {
        Traces::timed_out();
        return {0, ReadEnd::TimedOut, 0, deadline};
    }
    if (ready < 0) {
        Traces::failed();
        return {-1, ReadEnd::Broken, 0, deadline};
    }
    if (events == POLLIN) {
        trace_events(0, "POLLIN \n");
        return read_until_full<Traces>(fd, static_cast<char*>(buf), len, deadline, signals, read_some);
    }
    if ((events & POLLHUP) != 0) {
        trace_events(2, "POLLHUP\n");
        return {0, ReadEnd::Closed, 0, deadline};
    }
    if ((events & POLLERR) == 0)
        return {1, ReadEnd::Odd, 0, deadline};  // callers take it for a short read
    trace_events(3, "POLLERR\n");
    return {0, ReadEnd::Closed, 0, deadline};
}

// Never raises SIGPIPE on a socket: a server that has gone must not kill the application.
ssize_t write_now(int fd, const void* buf, size_t len) {
    errno = 0;
    const ssize_t sent = send(fd, buf, len, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0 || errno != ENOTSOCK)
        return sent;
    errno = 0;
    return write(fd, buf, len);
}

bool may_wait(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    return flags >= 0 && (flags & O_NONBLOCK) == 0;
}

bool wait_to_write(int fd, const Deadline& deadline) {
    pollfd waiting = {.fd = fd, .events = POLLOUT, .revents = 0};
    const int32_t left = deadline.left_ms();
    const int ready = left > 0 ? poll(&waiting, 1, left) : 0;
    if (ready == 0)
        errno = ETIMEDOUT;
    return ready > 0;
}

}  // namespace

int wait_to_read(int fd, int32_t milliseconds, Signals signals, short& events) {
    pollfd waiting = {.fd = fd, .events = POLLIN | POLLERR | POLLHUP, .revents = 0};
    int ready = 0;
    if (signals == Signals::Held) {
        sigset_t all;
        sigfillset(&all);
        const timespec limit = {milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
        ready = ppoll(&waiting, 1, &limit, &all);
    } else {
        ready = poll(&waiting, 1, milliseconds);
    }
    events = waiting.revents;
    return ready;
}

Reading read_whole(Reader reader, int fd, void* buf, size_t len, Signals signals, ReadSome read_some) {
    return reader == Reader::Sync ? read_with<SyncTraces>(fd, buf, len, signals, read_some)
                                  : read_with<BlockTraces>(fd, buf, len, signals, read_some);
}

int64_t write_whole(int fd, const void* buf, size_t len) {
    ssize_t sent = write_now(fd, buf, len);
    if (sent == static_cast<ssize_t>(len) || (sent < 0 && errno != EAGAIN) || sent == 0 || !may_wait(fd))
        return sent;
    const Deadline deadline = Deadline::in(kWriteLimitMs);
    size_t total = sent > 0 ? static_cast<size_t>(sent) : 0;
    while (total < len && wait_to_write(fd, deadline)) {
        sent = write_now(fd, static_cast<const char*>(buf) + total, len - total);
        if (sent < 0 && errno == EAGAIN)
            continue;
        if (sent <= 0)
            break;
        total += static_cast<size_t>(sent);
    }
    return total > 0 ? static_cast<int64_t>(total) : -1;
}

}  // namespace quorvel
