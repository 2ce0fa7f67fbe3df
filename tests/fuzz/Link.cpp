#include "Link.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "Fuzz.h"
#include "client/CM/src/NetCMClientInternal/Link.h"
#include "client/CM/src/NetCMClientInternal/Stream.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Trace.h"

namespace quorvel::fuzz {
namespace {

Link* the_link = nullptr;

// Whether the thread does what an input says. The engine has another one, which is to sleep between its looks
// at the memory in use.
thread_local bool is_fuzzed = false;

const pthread_t kNobody = static_cast<pthread_t>(-1);

}  // namespace

Link::Link(Side side, Input& input, NetCMEventCallback callback) : side_(side), input_(input) {
    is_fuzzed = true;
    QV_FUZZ_EXPECT(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_) == 0);
    NetCMClientLibInit();
    NetCMClientAppInfo& table = g_NetCMClientAppInfo;
    table.IsRegistered = 1;
    table.ClientId = 100;
    table.RegCount = 1;
    table.RecvThreadId = pthread_self();
    table.ThreadInfo[0] = {NetCMGetCurrentTid(), callback, -1};
    (side == Side::Sync ? table.SyncSockFd : table.AsyncSockFd) = ends_[0];
    const AppMutexGuard guard(QV_HERE);
    sync_stream.begins();
    async_stream.begins(side == Side::Async ? ends_[0] : -1);
    the_link = this;
}

Link::~Link() {
    the_link = nullptr;
    NetCMClientAppInfo& table = g_NetCMClientAppInfo;
    // What has been lost is lost until somebody tries to repair it, which closes the sockets.
    if (over_) {
        const AppMutexGuard guard(QV_HERE);
        NetCMClientReRegister();
    }
    if ((side_ == Side::Sync ? table.SyncSockFd : table.AsyncSockFd) == ends_[0])
        close(ends_[0]);
    hang_up();
    table.RecvThreadId = kNobody;
    NetCMClientLibInit();
    table.IsRegistered = 0;
}

void Link::will_send(const void* bytes, size_t size) {
    const auto* from = static_cast<const uint8_t*>(bytes);
    to_send_.insert(to_send_.end(), from, from + size);
}

bool Link::send_some(size_t most) {
    const size_t size = std::min(most, to_send_.size() - sent_);
    if (size == 0 || ends_[1] < 0)
        return false;
    const ssize_t went = send(ends_[1], to_send_.data() + sent_, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    sent_ += went > 0 ? static_cast<size_t>(went) : 0;
    return went > 0;
}

void Link::hang_up() {
    if (ends_[1] >= 0)
        close(ends_[1]);
    ends_[1] = -1;
    over_ = true;
}

void Link::will_answer(const void* bytes, size_t size) {
    const auto* from = static_cast<const uint8_t*>(bytes);
    answer_.insert(answer_.end(), from, from + size);
}

void Link::take_request() {
    char bytes[4096];
    bool came = false;
    while (ends_[1] >= 0 && recv(ends_[1], bytes, sizeof bytes, MSG_DONTWAIT) > 0)
        came = true;
    if (!came)
        return;
    will_send(answer_.data(), answer_.size());
    answer_.clear();
}

void Link::is_shut_down() {
    over_ = true;
    // The receiver would end now.
    g_NetCMClientAppInfo.RecvThreadId = kNobody;
}

bool Link::is_readable() const {
    char byte = 0;
    return recv(ends_[0], &byte, 1, MSG_DONTWAIT | MSG_PEEK) >= 0;
}

int Link::wait(int fd, short& events) {
    events = 0;
    if (fd != ends_[0])
        return 0;
    take_request();
    if (!is_readable()) {
        const uint8_t what = input_.byte() % 16;
        if (what == 13)
            return 0;  // too late
        if (what == 14) {
            errno = EINTR;
            return -1;
        }
        if (what == 15)
            hang_up();
        else if (!send_some(what == 0 ? SIZE_MAX : size_t{what} * what))
            return 0;
    }
    events = ends_[1] < 0 ? static_cast<short>(is_readable() ? POLLIN | POLLHUP : POLLHUP) : short{POLLIN};
    return 1;
}

}  // namespace quorvel::fuzz

// ---- What the library calls in place of the C library's.

using quorvel::fuzz::is_fuzzed;
using quorvel::fuzz::the_link;

extern "C" {

int __wrap_poll(pollfd* waiting, nfds_t count, int);
int __wrap_ppoll(pollfd* waiting, nfds_t count, const timespec*, const sigset_t*);
int __wrap_shutdown(int fd, int how);
int __wrap_connect(int, const sockaddr*, socklen_t);
unsigned __wrap_sleep(unsigned seconds);
int __wrap_nanosleep(const timespec* time, timespec* left);
int __real_shutdown(int fd, int how);
unsigned __real_sleep(unsigned seconds);
int __real_nanosleep(const timespec* time, timespec* left);

int __wrap_poll(pollfd* waiting, nfds_t, int) {
    return the_link != nullptr ? the_link->wait(waiting->fd, waiting->revents) : 0;
}
int __wrap_ppoll(pollfd* waiting, nfds_t, const timespec*, const sigset_t*) {
    return the_link != nullptr ? the_link->wait(waiting->fd, waiting->revents) : 0;
}
int __wrap_shutdown(int fd, int how) {
    if (the_link != nullptr)
        the_link->is_shut_down();
    return fd >= 0 ? __real_shutdown(fd, how) : -1;
}
int __wrap_connect(int, const sockaddr*, socklen_t) {
    errno = ECONNREFUSED;
    return -1;
}
unsigned __wrap_sleep(unsigned seconds) {
    return is_fuzzed ? 0 : __real_sleep(seconds);
}
int __wrap_nanosleep(const timespec* time, timespec* left) {
    return is_fuzzed ? 0 : __real_nanosleep(time, left);
}

}  // extern "C"
