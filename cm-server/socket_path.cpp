#include "socket_path.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <utility>

namespace quorvel::cm {
namespace {

[[noreturn]] void fail(const std::string& path, const std::string& what) {
    throw SocketPathError(path + ": " + what);
}

sockaddr_un address_of(const std::string& path) {
    sockaddr_un address{};
    if (path.empty() || path.size() >= sizeof(address.sun_path))
        fail(path, "no usable path for a socket");
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

int stream_socket() {
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

template <auto Call>
int with_address(int fd, const sockaddr_un& address) {
    return Call(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

struct Inherited {
    int fd;
    dev_t device;
    ino_t inode;
};

std::map<std::string, Inherited> inherited_sockets() {
    std::map<std::string, Inherited> result;
    const int count = sd_listen_fds(1);
    for (int fd = SD_LISTEN_FDS_START; fd < SD_LISTEN_FDS_START + count; ++fd) {
        sockaddr_un address{};
        socklen_t size = sizeof(address);
        struct stat found {};
        if (sd_is_socket(fd, AF_UNIX, SOCK_STREAM, 1) <= 0 ||
            getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
            lstat(address.sun_path, &found) != 0)
            continue;
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
        result[address.sun_path] = {fd, found.st_dev, found.st_ino};
    }
    return result;
}

// ": process 4711 of user me", as far as the system says.
std::string listener_of(int fd) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return "";  // not reached: the system never says so
    const passwd* user = getpwuid(peer.uid);
    return ": process " + std::to_string(peer.pid) + " of user " +
           (user != nullptr ? user->pw_name : std::to_string(peer.uid));
}

// Makes room, or says why there is none.
void clear_stale(const std::string& path) {
    struct stat found {};
    if (lstat(path.c_str(), &found) != 0)
        return;
    if (!S_ISSOCK(found.st_mode))
        fail(path, "something that is no socket is there; it is left alone");
    const int fd = connect_to(path);
    if (fd >= 0) {
        const std::string who = listener_of(fd);
        close(fd);
        fail(path, "another server is running there" + who);
    }
    if (errno != ECONNREFUSED && errno != ENOENT)
        fail(path, std::string("another server may be running there: ") + std::strerror(errno));
    if (unlink(path.c_str()) != 0 && errno != ENOENT)
        fail(path, std::string("a dead server's socket cannot be removed: ") + std::strerror(errno));
}

int close_with_error(int fd) {
    const int error = errno;
    close(fd);
    errno = error;
    return -1;
}

// A listening socket, or -1 with errno.
int listen_on(const std::string& path, mode_t mode) {
    const sockaddr_un address = address_of(path);
    const int fd = stream_socket();
    if (fd < 0)
        return -1;
    // The right mode from the first moment on: a chmod afterwards would leave a gap.
    const mode_t before = umask(static_cast<mode_t>(~mode & 0777));
    const bool bound = with_address<::bind>(fd, address) == 0;
    umask(before);
    return bound && listen(fd, SOMAXCONN) == 0 ? fd : close_with_error(fd);
}

// The service manager's socket for the path, as long as the path is still the one that it has made. It stays
// the manager's: what is used is a copy.
int inherited_socket(const std::string& path) {
    static const std::map<std::string, Inherited> all = inherited_sockets();
    const auto found = all.find(path);
    struct stat now {};
    if (found == all.end() || lstat(path.c_str(), &now) != 0 || now.st_dev != found->second.device ||
        now.st_ino != found->second.inode)
        return -1;
    return fcntl(found->second.fd, F_DUPFD_CLOEXEC, 0);
}

}  // namespace

int connect_to(const std::string& path) {
    const sockaddr_un address = address_of(path);
    const int fd = stream_socket();
    return fd < 0 || with_address<::connect>(fd, address) == 0 ? fd : close_with_error(fd);
}

SocketPath::SocketPath(std::string path, mode_t mode) : path_(std::move(path)) {
    fd_ = inherited_socket(path_);
    inherited_ = fd_ >= 0;
    if (!inherited_) {
        clear_stale(path_);
        fd_ = listen_on(path_, mode);
    }
    struct stat own {};
    if (fd_ < 0 || stat(path_.c_str(), &own) != 0)
        fail(path_, std::string("cannot listen there: ") + std::strerror(errno));
    device_ = own.st_dev;
    inode_ = own.st_ino;
}

SocketPath::~SocketPath() {
    if (fd_ >= 0)
        close(fd_);
    if (!inherited_ && ours())
        unlink(path_.c_str());
}

int SocketPath::release() {
    return std::exchange(fd_, -1);
}

bool SocketPath::ours() const {
    struct stat now {};
    return lstat(path_.c_str(), &now) == 0 && now.st_dev == device_ && now.st_ino == inode_;
}

}  // namespace quorvel::cm
