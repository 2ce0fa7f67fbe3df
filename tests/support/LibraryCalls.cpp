#include "support/LibraryCalls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>

#include "support/LibraryFaults.h"

namespace quorvel::test {
namespace {

struct Order {
    std::atomic<size_t> made{0};
    std::atomic<size_t> fail_from{0};  // 0: never
    std::atomic<size_t> fail_times{0};
    std::atomic<size_t> fail_also{0};  // 0: never
    std::atomic<int> error{0};
    std::atomic<size_t> failures{0};
    std::atomic<size_t> hook_at{0};  // 0: never

    bool is_to_fail(size_t number) const {
        const size_t from = fail_from;
        return (from != 0 && number >= from && number - from < fail_times) || number == fail_also;
    }
};

constinit std::array<Order, static_cast<size_t>(Call::kCount)> orders{};
constinit std::atomic<uintptr_t> library_begin{0};
constinit std::atomic<uintptr_t> library_end{0};
constinit std::atomic<int> next_poll_events{-1};
constinit std::atomic<long> blocks{0};
constinit std::atomic<bool> sleeps_are_skipped{false};
constinit std::atomic<time_t> stopped_time{-1};  // -1: time passes

struct Shared {
    std::mutex mutex;
    std::array<std::function<void()>, static_cast<size_t>(Call::kCount)> hooks;
    std::vector<unsigned> sleeps;
    std::vector<unsigned> connect_lengths;
};

// Never destroyed: threads of the library may outlive main.
Shared& shared() {
    static Shared& instance = *new Shared;
    return instance;
}

Order& order(Call call) {
    return orders[static_cast<size_t>(call)];
}

int note_library(dl_phdr_info* info, size_t, void*) {
    if (strstr(info->dlpi_name, "/libquorvel.so") == nullptr)
        return 0;
    for (const ElfW(Phdr)* header = info->dlpi_phdr; header != info->dlpi_phdr + info->dlpi_phnum; ++header) {
        if (header->p_type != PT_LOAD || (header->p_flags & PF_X) == 0)
            continue;
        library_begin = info->dlpi_addr + header->p_vaddr;
        library_end = info->dlpi_addr + header->p_vaddr + header->p_memsz;
    }
    return 1;
}

__attribute__((constructor)) void find_library() {
    // Made before there are threads: the thread sanitizer does not see what guards it here.
    shared();
    dl_iterate_phdr(note_library, nullptr);
}

void run_hook(Call call) {
    std::function<void()> hook;
    {
        const std::lock_guard lock(shared().mutex);
        hook.swap(shared().hooks[static_cast<size_t>(call)]);
    }
    if (hook)
        hook();
}

// Counts the call when it comes from the library. 0 when it shall be made, otherwise the error to fail with.
int error_of(Call call, const void* caller, int usual_error) {
    if (!calls::is_library_code(caller))
        return 0;
    Order& ordered = order(call);
    const size_t number = ++ordered.made;
    size_t hook_at = number;
    if (ordered.hook_at.compare_exchange_strong(hook_at, 0))
        run_hook(call);
    if (!ordered.is_to_fail(number))
        return 0;
    ++ordered.failures;
    return ordered.error != 0 ? ordered.error.load() : usual_error;
}

// The same for functions that fail with -1 and errno.
bool fails(Call call, const void* caller, int usual_error) {
    const int error = error_of(call, caller, usual_error);
    if (error != 0)
        errno = error;
    return error != 0;
}

// A sanitizer looks for what is lost itself, and frees memory before our functions can find its own.
#ifdef QUORVEL_IS_SANITIZED
constexpr bool kCountsBlocks = false;
#else
constexpr bool kCountsBlocks = true;
#endif

// Hands on what an allocation has given, and counts it when it is the library's.
void* counted(void* block, const void* caller) {
    if (kCountsBlocks && block != nullptr && calls::is_library_code(caller))
        ++blocks;
    return block;
}

}  // namespace

namespace calls {

bool is_library_code(const void* address) {
    const auto value = reinterpret_cast<uintptr_t>(address);
    return value >= library_begin && value < library_end;
}

size_t count(Call call) {
    return order(call).made;
}

void reset() {
    for (Order& ordered : orders) {
        ordered.fail_from = ordered.fail_also = ordered.hook_at = ordered.made = 0;
        ordered.failures = 0;
    }
    next_poll_events = -1;
    sleeps_are_skipped = false;
    stopped_time = -1;
    const std::lock_guard lock(shared().mutex);
    shared().sleeps.clear();
    shared().connect_lengths.clear();
}

void fail(Call call, size_t nth, int error, size_t times) {
    Order& ordered = order(call);
    ordered.fail_from = ordered.fail_also = 0;
    ordered.failures = 0;
    ordered.error = error;
    ordered.fail_times = times;
    ordered.fail_from = ordered.made + nth;
}

bool has_failed(Call call) {
    return failures(call) != 0;
}

void fail_also(Call call, size_t nth) {
    order(call).fail_also = order(call).made + nth;
}

size_t failures(Call call) {
    return order(call).failures;
}

long blocks_of_library() {
    return blocks;
}

void before(Call call, std::function<void()> hook, size_t nth) {
    {
        const std::lock_guard lock(shared().mutex);
        shared().hooks[static_cast<size_t>(call)] = std::move(hook);
    }
    order(call).hook_at = order(call).made + nth;
}

void answer_next_poll(short events) {
    next_poll_events = static_cast<unsigned short>(events);
}

void skip_sleeps() {
    sleeps_are_skipped = true;
}

void stop_time(time_t now) {
    stopped_time = now;
}

std::vector<unsigned> connect_lengths() {
    const std::lock_guard lock(shared().mutex);
    return shared().connect_lengths;
}

std::vector<unsigned> sleeps() {
    const std::lock_guard lock(shared().mutex);
    return shared().sleeps;
}

}  // namespace calls
}  // namespace quorvel::test

using quorvel::test::Call;
using quorvel::test::counted;
using quorvel::test::error_of;
using quorvel::test::fails;

// Never a part of another: each asks who has called it.
#define QV_WRAPPER extern "C" __attribute__((visibility("default"), noinline))
#define QV_CALLER __builtin_return_address(0)
// The definition behind ours: the C library's, or the sanitizer's in front of it. Without an initialised
// static, since the very first allocations of the process come through here.
#define QV_REAL(name)                                                             \
    ([] {                                                                         \
        static decltype(&::name) real;                                            \
        decltype(&::name) found = __atomic_load_n(&real, __ATOMIC_RELAXED);       \
        if (found == nullptr) {                                                   \
            found = reinterpret_cast<decltype(&::name)>(dlsym(RTLD_NEXT, #name)); \
            __atomic_store_n(&real, found, __ATOMIC_RELAXED);                     \
        }                                                                         \
        return found;                                                             \
    }())

QV_WRAPPER void* malloc(size_t size) noexcept {
    return fails(Call::Malloc, QV_CALLER, ENOMEM) ? nullptr : counted(QV_REAL(malloc)(size), QV_CALLER);
}

QV_WRAPPER void* calloc(size_t count, size_t size) noexcept {
    return fails(Call::Malloc, QV_CALLER, ENOMEM) ? nullptr
                                                  : counted(QV_REAL(calloc)(count, size), QV_CALLER);
}

QV_WRAPPER void* realloc(void* block, size_t size) noexcept {
    if (fails(Call::Malloc, QV_CALLER, ENOMEM))
        return nullptr;
    void* const moved = QV_REAL(realloc)(block, size);
    return block == nullptr ? counted(moved, QV_CALLER) : moved;
}

QV_WRAPPER int posix_memalign(void** block, size_t alignment, size_t size) noexcept {
    int error = error_of(Call::Malloc, QV_CALLER, ENOMEM);
    if (error == 0)
        error = QV_REAL(posix_memalign)(block, alignment, size);
    if (error == 0)
        counted(*block, QV_CALLER);
    return error;
}

QV_WRAPPER char* strdup(const char* text) noexcept {
    if (fails(Call::Malloc, QV_CALLER, ENOMEM))
        return nullptr;
    return static_cast<char*>(counted(QV_REAL(strdup)(text), QV_CALLER));
}

QV_WRAPPER int vasprintf(char** text, const char* format, va_list values) noexcept {
    if (fails(Call::Format, QV_CALLER, ENOMEM))
        return -1;
    const int length = QV_REAL(vasprintf)(text, format, values);
    if (length >= 0)
        counted(*text, QV_CALLER);
    return length;
}

QV_WRAPPER int asprintf(char** text, const char* format, ...) noexcept {
    if (fails(Call::Format, QV_CALLER, ENOMEM))
        return -1;
    va_list values;
    va_start(values, format);
    const int length = QV_REAL(vasprintf)(text, format, values);
    va_end(values);
    if (length >= 0)
        counted(*text, QV_CALLER);
    return length;
}

#ifndef QUORVEL_IS_SANITIZED
QV_WRAPPER void free(void* block) noexcept {
    if (block != nullptr && quorvel::test::calls::is_library_code(QV_CALLER))
        --quorvel::test::blocks;
    QV_REAL(free)(block);
}
#endif

QV_WRAPPER int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                              void* argument) noexcept {
    const int error = error_of(Call::ThreadCreate, QV_CALLER, EAGAIN);
    return error != 0 ? error : QV_REAL(pthread_create)(thread, attributes, start, argument);
}

QV_WRAPPER int pthread_join(pthread_t thread, void** result) {
    const int error = error_of(Call::ThreadJoin, QV_CALLER, ESRCH);
    return error != 0 ? error : QV_REAL(pthread_join)(thread, result);
}

QV_WRAPPER int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    const int error = error_of(Call::MutexLock, QV_CALLER, EINVAL);
    return error != 0 ? error : QV_REAL(pthread_mutex_lock)(mutex);
}

QV_WRAPPER int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    const int error = error_of(Call::MutexUnlock, QV_CALLER, EPERM);
    return error != 0 ? error : QV_REAL(pthread_mutex_unlock)(mutex);
}

QV_WRAPPER int socket(int domain, int type, int protocol) noexcept {
    return fails(Call::Socket, QV_CALLER, EMFILE) ? -1 : QV_REAL(socket)(domain, type, protocol);
}

QV_WRAPPER int connect(int fd, const sockaddr* address, socklen_t length) {
    if (quorvel::test::calls::is_library_code(QV_CALLER)) {
        const std::lock_guard lock(quorvel::test::shared().mutex);
        quorvel::test::shared().connect_lengths.push_back(length);
    }
    return fails(Call::Connect, QV_CALLER, ECONNREFUSED) ? -1 : QV_REAL(connect)(fd, address, length);
}

QV_WRAPPER int pipe2(int ends[2], int flags) noexcept {
    return fails(Call::Pipe, QV_CALLER, EMFILE) ? -1 : QV_REAL(pipe2)(ends, flags);
}

QV_WRAPPER int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) {
    return fails(Call::Select, QV_CALLER, EINTR)
               ? -1
               : QV_REAL(select)(count, readable, writable, exceptional, timeout);
}

namespace {

// Whether a test has the answer ready that a call from there is to get.
bool answers_poll(const void* caller, pollfd* waiting, int& result) {
    if (!quorvel::test::calls::is_library_code(caller))
        return false;
    const int events = quorvel::test::next_poll_events.exchange(-1);
    if (events < 0)
        return false;
    waiting->revents = static_cast<short>(events);
    result = events != 0 ? 1 : 0;
    return true;
}

}  // namespace

QV_WRAPPER int poll(pollfd* waiting, nfds_t count, int timeout) {
    int result = -1;
    if (fails(Call::Poll, QV_CALLER, EINVAL) || answers_poll(QV_CALLER, waiting, result))
        return result;
    return QV_REAL(poll)(waiting, count, timeout);
}

QV_WRAPPER int ppoll(pollfd* waiting, nfds_t count, const timespec* timeout, const sigset_t* mask) {
    int result = -1;
    if (fails(Call::Poll, QV_CALLER, EINVAL) || answers_poll(QV_CALLER, waiting, result))
        return result;
    return QV_REAL(ppoll)(waiting, count, timeout, mask);
}

QV_WRAPPER ssize_t read(int fd, void* buffer, size_t length) {
    return fails(Call::Read, QV_CALLER, EIO) ? -1 : QV_REAL(read)(fd, buffer, length);
}

QV_WRAPPER ssize_t write(int fd, const void* buffer, size_t length) {
    return fails(Call::Write, QV_CALLER, EIO) ? -1 : QV_REAL(write)(fd, buffer, length);
}

QV_WRAPPER ssize_t send(int fd, const void* buffer, size_t length, int flags) {
    return fails(Call::Send, QV_CALLER, EPIPE) ? -1 : QV_REAL(send)(fd, buffer, length, flags);
}

QV_WRAPPER ssize_t recv(int fd, void* buffer, size_t length, int flags) {
    return fails(Call::Receive, QV_CALLER, EIO) ? -1 : QV_REAL(recv)(fd, buffer, length, flags);
}

QV_WRAPPER int close(int fd) {
    return fails(Call::Close, QV_CALLER, EIO) ? -1 : QV_REAL(close)(fd);
}

QV_WRAPPER int fcntl(int fd, int command, ...) {
    if (fails(Call::Fcntl, QV_CALLER, EMFILE))
        return -1;
    // Every command takes at most one argument, which fits a pointer.
    va_list values;
    va_start(values, command);
    void* argument = va_arg(values, void*);
    va_end(values);
    return QV_REAL(fcntl)(fd, command, argument);
}

QV_WRAPPER time_t time(time_t* out) noexcept {
    const time_t stopped = quorvel::test::stopped_time;
    if (stopped < 0 || !quorvel::test::calls::is_library_code(QV_CALLER))
        return QV_REAL(time)(out);
    if (out != nullptr)
        *out = stopped;
    return stopped;
}

QV_WRAPPER unsigned sleep(unsigned seconds) {
    if (!quorvel::test::calls::is_library_code(QV_CALLER))
        return QV_REAL(sleep)(seconds);
    {
        const std::lock_guard lock(quorvel::test::shared().mutex);
        quorvel::test::shared().sleeps.push_back(seconds);
    }
    return quorvel::test::sleeps_are_skipped ? 0 : QV_REAL(sleep)(seconds);
}
