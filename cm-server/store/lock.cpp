#include "store/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "store/database.h"

namespace quorvel::cm {

StoreLock::StoreLock(const std::string& database) {
    if (database == kInMemory)
        return;
    const std::string path = database + "-lock";
    fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd_ < 0)
        throw DatabaseError(database + ": unable to open its lock: " + std::strerror(errno));
    if (flock(fd_, LOCK_EX | LOCK_NB) == 0)
        return;
    const int error = errno;
    close(fd_);
    if (error == EWOULDBLOCK)
        throw DatabaseError(database + ": another server uses this database");
    throw DatabaseError(database + ": cannot be locked: " + std::strerror(error));
}

StoreLock::~StoreLock() {
    if (fd_ >= 0)
        close(fd_);
}

}  // namespace quorvel::cm
