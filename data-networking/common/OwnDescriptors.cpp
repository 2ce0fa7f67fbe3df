#include "common/OwnDescriptors.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>

namespace quorvel {
namespace {

// A bit for each descriptor, so that any number of them finds room without a lock; what is never touched
// of the 8 KB takes no memory. Descriptors beyond are not noted.
constexpr int kWordBits = 32;
constexpr int kDescriptors = 1 << 16;

constinit std::array<std::atomic<uint32_t>, kDescriptors / kWordBits> noted{};

bool has_place(int fd) {
    return fd >= 0 && fd < kDescriptors;
}
std::atomic<uint32_t>& word_of(int fd) {
    return noted[static_cast<size_t>(fd / kWordBits)];
}
uint32_t bit_of(int fd) {
    return uint32_t{1} << (fd % kWordBits);
}

bool has_option(int fd, int option, int wanted) {
    int value = 0;
    socklen_t length = sizeof value;
    return getsockopt(fd, SOL_SOCKET, option, &value, &length) == 0 && value == wanted;
}

bool is_pipe(int fd) {
    struct stat status = {};
    fstat(fd, &status);  // of what is not open, it says nothing
    return S_ISFIFO(status.st_mode);
}

// The kernel copies descriptors before it copies memory: between the two, another thread of the parent may
// have closed a file of the application's and noted its number as its own.
bool is_like_ours(int fd) {
    return (has_option(fd, SO_DOMAIN, AF_INET) && has_option(fd, SO_TYPE, SOCK_DGRAM)) ||
           (has_option(fd, SO_DOMAIN, AF_UNIX) && has_option(fd, SO_TYPE, SOCK_STREAM)) || is_pipe(fd);
}

}  // namespace

void note_descriptor(int fd) {
    if (has_place(fd))
        word_of(fd).fetch_or(bit_of(fd), std::memory_order_relaxed);
}

void forget_descriptor(int fd) {
    if (has_place(fd))
        word_of(fd).fetch_and(~bit_of(fd), std::memory_order_relaxed);
}

int close_own(int fd) {
    forget_descriptor(fd);
    return close(fd);
}

void close_descriptors_in_child() {
    for (int first = 0; first < kDescriptors; first += kWordBits) {
        const uint32_t bits = word_of(first).load(std::memory_order_relaxed);
        if (bits == 0)
            continue;
        word_of(first).store(0, std::memory_order_relaxed);
        for (int fd = first; fd < first + kWordBits; ++fd)
            if ((bits & bit_of(fd)) != 0 && is_like_ours(fd))
                close(fd);
    }
}

}  // namespace quorvel
