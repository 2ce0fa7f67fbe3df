#include "evtsys.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "common/Line.h"

#define QV_EXPORT extern "C" __attribute__((visibility("default")))

using namespace quorvel::platform;

namespace {

constinit std::atomic<bool> opened{false};

bool is_socket(const char* path) {
    struct stat status {};
    return stat(path, &status) == 0 && S_ISSOCK(status.st_mode);
}

void send_to_socket(const char* path, const Line& line) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof address.sun_path)
        return;
    strcpy(address.sun_path, path);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return;
    sendto(fd, line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr*>(&address), sizeof address);
    close(fd);
}

}  // namespace

QV_EXPORT int EvtSysEventHandleExist(void*) {
    return opened.load(std::memory_order_relaxed);
}

QV_EXPORT int EvtSysLibraryOpen(void** handle) {
    if (handle == nullptr)
        return EINVAL;
    *handle = &opened;
    opened.store(true, std::memory_order_relaxed);
    return 0;
}

QV_EXPORT int EvtSysEventPublish(void*, const char* name) {
    if (name == nullptr || name[0] == '\0')
        return EINVAL;
    const char* watcher = secure_getenv("QUORVEL_EVENTS");
    if (watcher == nullptr || watcher[0] == '\0')
        return 0;
    const Unnoticed unnoticed;
    Line line;
    line.append_time();
    line.append(" %d %s", getpid(), name);
    line.finish();
    if (is_socket(watcher))
        send_to_socket(watcher, line);
    else
        append_to_file(watcher, line);
    return 0;
}
