// Descriptors as the library keeps them: close-on-exec and above 2.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace quorvel {

inline constexpr int kLowestDescriptor = 3;

// Moves a new descriptor up to `lowest` or above. The standard streams stay free, also where the application
// has closed them: a descriptor below 1 counts as invalid everywhere. Returns -1 with errno set where there
// is none.
inline int at_least(int lowest, int fd) {
    if (fd < 0 || fd >= lowest)
        return fd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, lowest);
    const int error = errno;
    close(fd);
    errno = error;
    return moved;
}

}  // namespace quorvel
