#include "record/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "record/plan.h"

namespace quorvel::cm {

OutputFile::OutputFile(std::string path)
    : path_(std::move(path)),
      fd_(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600)) {
    if (fd_ < 0)
        throw RecordError(path_ + ": " + (errno == EEXIST ? "is there already" : std::strerror(errno)));
}

OutputFile::~OutputFile() {
    if (fd_ < 0)
        return;
    ::close(fd_);
    unlink(path_.c_str());
}

void OutputFile::write(const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t now = ::write(fd_, text.data() + done, text.size() - done);
        if (now < 0 && errno == EINTR)
            continue;
        if (now <= 0)
            throw RecordError(path_ + ": " + std::strerror(now < 0 ? errno : ENOSPC));
        done += static_cast<size_t>(now);
    }
}

void OutputFile::close() {
    if (::close(std::exchange(fd_, -1)) != 0)
        throw RecordError(path_ + ": " + std::strerror(errno));
}

}  // namespace quorvel::cm
