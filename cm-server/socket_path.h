// Owning a socket's path: one server at a time, and no leftovers.
#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>

namespace quorvel::cm {

class SocketPathError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A listening socket on a path. The path goes when this goes, unless somebody else's socket is there by then.
class SocketPath {
  public:
    // Takes the socket that the service manager has opened there, or what a dead server has left. Throws
    // SocketPathError when a living server answers there, when something that is no socket is there, or when
    // the path cannot be used.
    SocketPath(std::string path, mode_t mode);
    ~SocketPath();
    SocketPath(const SocketPath&) = delete;
    SocketPath& operator=(const SocketPath&) = delete;

    const std::string& path() const { return path_; }
    // The listening descriptor; it belongs to the caller from here on.
    int release();
    // Whether the path still leads to this socket.
    bool ours() const;

  private:
    std::string path_;
    int fd_ = -1;
    bool inherited_ = false;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

// Connects, or gives -1 with errno.
int connect_to(const std::string& path);

}  // namespace quorvel::cm
