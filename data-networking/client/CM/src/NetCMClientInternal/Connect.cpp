#include "client/CM/src/NetCMClientInternal/Connect.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "client/CM/src/NetCMPrivate.h"
#include "common/Clock.h"
#include "common/Descriptor.h"
#include "common/OwnDescriptors.h"
#include "common/Pause.h"
#include "common/Wire.h"

namespace quorvel {
namespace {

constexpr char kServerLostEvent[] = "Sync.Noti.CMServer";

// False when the platform's library cannot be opened.
bool publish_loss() {
    if (EvtSysEventHandleExist(nullptr) == 0) {
        void* handle = nullptr;
        if (EvtSysLibraryOpen(&handle) != 0) {
            QV_TRACE(3, "Error EvtSysLibraryOpen()\n");
            return false;
        }
        QV_TRACE(0, "EvtSysLibraryOpen success!!!!!!!!!\n");
    }
    const int result = EvtSysEventPublish(nullptr, kServerLostEvent);
    QV_TRACE(0, "EvtSysEventPublish success!!!!!!!!!\n");
    if (result == 0)
        QV_TRACE(2, "Published [Sync.Noti.CMServer]");
    else
        QV_TRACE(2, "Failed to publish [Sync.Noti.CMServer] with error code [%d]\n", result);
    return true;
}

// A server that accepts nobody lets a connect hang when its backlog is full.
constexpr int32_t kConnectLimitMs = 10'000;

void limit_connect(int fd, int32_t milliseconds) {
    const timeval limit = {milliseconds / 1000, suseconds_t{milliseconds % 1000} * 1000};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

}  // namespace

int create_socket() {
    const int fd = at_least(kLowestDescriptor, socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    note_descriptor(fd);
    return fd;
}

bool connect_to_server(int fd) {
    sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
    strcpy(address.sun_path, wire::kServerPath);
    // The length leaves the path's terminating zero out.
    constexpr socklen_t length = offsetof(sockaddr_un, sun_path) + sizeof wire::kServerPath - 1;
    const Deadline deadline = Deadline::in(kConnectLimitMs);
    int result = -1;
    do {
        limit_connect(fd, deadline.left_ms());
        result = connect(fd, reinterpret_cast<const sockaddr*>(&address), length);
    } while (result != 0 && errno == EINTR && deadline.left_ms() > 0);
    return result == 0;
}

void give_up_connecting(int fd) {
    // Without a pause, and the socket stays open: integrators look for it in this state.
    if (!publish_loss())
        return;
    close_own(fd);
    pause_for(1);
}

}  // namespace quorvel
