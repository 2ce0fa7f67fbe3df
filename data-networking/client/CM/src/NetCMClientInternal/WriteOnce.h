// The one way in which bytes leave the library towards the server.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace quorvel {

// One write, which never raises SIGPIPE on a socket: a server that has gone must not kill the application.
inline ssize_t write_once(int fd, const void* buf, size_t len) {
    errno = 0;
    const ssize_t sent = send(fd, buf, len, MSG_NOSIGNAL);
    if (sent >= 0 || errno != ENOTSOCK)
        return sent;
    errno = 0;
    return write(fd, buf, len);
}

}  // namespace quorvel
