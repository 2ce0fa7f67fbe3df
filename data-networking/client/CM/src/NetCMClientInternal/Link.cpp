// The server link: connect and register, repair after the server went away, take down.
#include "client/CM/src/NetCMClientInternal/Link.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "client/CM/src/NetCMClientInternal/ReceiverHandle.h"
#include "client/CM/src/NetCMClientInternal/WriteOnce.h"
#include "client/CM/src/NetCMIntf/Table.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Descriptor.h"
#include "common/Wire.h"

using namespace quorvel;

extern "C" {
int pipe_fds[2] = {kNoDescriptor, kNoDescriptor};
uint32_t* PendingEventRecord = nullptr;
}

namespace {

constexpr char kServerLostEvent[] = "Sync.Noti.CMServer";
constexpr uint32_t kStopWord = 1;

int create_socket() {
    return at_least(kLowestDescriptor, socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

bool connect_to_server(int fd) {
    sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
    strcpy(address.sun_path, wire::kServerPath);
    // The length leaves the path's terminating zero out.
    constexpr socklen_t length = offsetof(sockaddr_un, sun_path) + sizeof wire::kServerPath - 1;
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), length) == 0;
}

// Tells the platform that the server cannot be reached. False when the platform's library cannot be opened.
bool publish_server_lost() {
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

void sleep_a_second() {
    for (unsigned left = 1; left > 0;)
        left = sleep(left);
}

// The handshake on a connected sync socket: our application id out, our client id in.
bool register_sync_socket(int fd, int32_t* client_id) QV_REQUIRES(app_mutex) {
    wire::RequestHeader request = {};
    request.Command = wire::NETCM_CLIENT_REGISTER_REQ;
    request.ClientId = static_cast<uint32_t>(fd);
    request.Arg5 = static_cast<uint32_t>(table().AppId);
    if (NetCMSendRequest(fd, &request, sizeof request) != NETCM_SUCCESS) {
        QV_TRACE(3, "Error writing to socket, Errno = %d\n", errno);
        return false;
    }
    wire::Record response = {};
    const int32_t status = NetCMReadSocket(fd, &response, sizeof response);
    if (status < 1) {
        QV_TRACE(3, "Error reading socket, status = %d errno = %d\n", status, errno);
        return false;
    }
    if (response.Code != wire::NETCM_CLIENT_REGISTER_RSP) {
        QV_TRACE(3, "Invalid Response received from CM Server. cmd = %d \n", static_cast<int>(response.Code));
        return false;
    }
    if (response.Status != 0) {
        QV_TRACE(3, "Client not Registered Error = %d\n", static_cast<int>(response.Status));
        return false;
    }
    QV_TRACE(0, "Client ID received = %d \n", static_cast<int>(response.Word1));
    *client_id = static_cast<int32_t>(response.Word1);
    return true;
}

bool have_async_socket(int32_t client_id) QV_REQUIRES(app_mutex) {
    if (table().AsyncSockFd != kNoDescriptor) {
        QV_TRACE(0, "Async socket [%d] already exist\n", table().AsyncSockFd);
        return true;
    }
    if (NetCMClientAsyncEventInit(static_cast<uint32_t>(client_id)) != -1)
        return true;
    QV_TRACE(4, "Error creating Async Socket \n");
    return false;
}

bool make_control_pipe(int lowest) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    pipe_fds[0] = at_least(lowest, ends[0]);
    pipe_fds[1] = at_least(kLowestDescriptor, ends[1]);
    if (pipe_fds[0] >= 0 && pipe_fds[1] >= 0)
        return true;
    close_control_pipe();
    return false;
}

// The receiver's select counts its descriptors from the read end of the pipe, which is therefore placed above
// both sockets.
int highest_socket() QV_REQUIRES(app_mutex) {
    return std::max(table().SyncSockFd, table().AsyncSockFd);
}
bool place_control_pipe() QV_REQUIRES(app_mutex) {
    return make_control_pipe(highest_socket() + 1);
}
bool control_pipe_is_placed() QV_REQUIRES(app_mutex) {
    return pipe_fds[0] > highest_socket();
}

bool have_receiver() QV_REQUIRES(app_mutex) {
    if (table().RecvThreadId != kNoThread)
        return true;
    if (!place_control_pipe()) {
        QV_TRACE(4, "Error creating pipe \n");
        return false;
    }
    QV_TRACE(0, "Created internal pipe for async recv thread control\n");
    const int error = start_receiver(table().AsyncSockFd);
    if (error != 0) {
        QV_TRACE(4, "CM lib async thread creation failed. Error = [%d]\n", error);
        close_control_pipe();
        return false;
    }
    QV_TRACE(0, "CM lib Thread to receive async events created, ID = [%d] \n",
             static_cast<int>(load(table().RecvThreadId)));
    return true;
}

void close_link() QV_REQUIRES(app_mutex) {
    close_control_pipe();
    close_descriptor(table().AsyncSockFd);
    close_descriptor(table().SyncSockFd);
}

// Joins the receiver, which finishes with our lock what it has begun. False when the join failed.
bool join_receiver() QV_REQUIRES(app_mutex) {
    pthread_t receiver = kNoThread;
    if (!claim_receiver(receiver))
        return true;
    lend_to_receiver(true);
    const int error = pthread_join(receiver, nullptr);
    lend_to_receiver(false);
    release_receiver(error == 0);
    if (error != 0) {
        errno = error;
        QV_TRACE(4, "Error in pthread_join for killing Async thread [%d].. errno = [%s] \n",
                 static_cast<int>(receiver), strerror(errno));
        return false;
    }
    QV_TRACE(2, "Successful pthread_join for killed Async thread [%d] \n", static_cast<int>(receiver));
    free(PendingEventRecord);
    PendingEventRecord = nullptr;
    return true;
}

}  // namespace

namespace quorvel {

int start_receiver(int async_fd) {
    if (!control_pipe_is_placed()) {
        close_control_pipe();
        if (!place_control_pipe())
            return errno;
    }
    // The handle goes straight into the table: a receiver that ends at once must find it there to clear it.
    const int error = pthread_create(&table().RecvThreadId, nullptr, NetCMClientThread,
                                     reinterpret_cast<void*>(static_cast<intptr_t>(async_fd)));
    if (error != 0)
        store(table().RecvThreadId, kNoThread);
    return error;
}

void close_descriptor(int& fd) {
    if (fd > 0)
        close(fd);
    store(fd, kNoDescriptor);
}

void close_control_pipe() {
    close_descriptor(pipe_fds[0]);
    close_descriptor(pipe_fds[1]);
}

void forget_failed_link() {
    table().SyncSockFd = kNoDescriptor;
    store(table().AsyncSockFd, kNoDescriptor);
}

}  // namespace quorvel

extern "C" {

int NetCMClientInit(int32_t* clientIdOut) {
    if (clientIdOut == nullptr) {
        QV_TRACE(5, "NULL pointer variable passed\n");
        return -1;
    }
    const int fd = create_socket();
    if (fd == -1) {
        QV_TRACE(3, "Error creating sync socket. Error = [%s].\n", strerror(errno));
        return -1;
    }
    QV_TRACE(2, "Created sync socket [%d]\n", fd);
    QV_TRACE(0, "Connecting to server socket to register sync socket [%d]\n", fd);
    *clientIdOut = -1;
    if (!connect_to_server(fd)) {
        QV_TRACE(3, "[QUORVEL] error connecting to server socket. Error = [%s].\n", strerror(errno));
        if (!publish_server_lost())
            return -1;  // without a pause, and the socket stays open: integrators look for it in this state
        close(fd);
        sleep_a_second();
        return -1;
    }
    int32_t app_id = 0;
    NetCMClientGetAppId(&app_id);
    QV_TRACE(2, "App ID = %d\n", app_id);
    // The table keeps these also when a later step fails; the caller resets it.
    table().AppId = app_id;
    table().SyncSockFd = fd;
    if (!register_sync_socket(fd, clientIdOut) || !have_async_socket(*clientIdOut)) {
        close(fd);
        return -1;
    }
    if (!have_receiver()) {
        close(table().AsyncSockFd);
        close(fd);
        return -1;
    }
    QV_TRACE(0, "Connected sync socket %d to the CM server socket\n", fd);
    return fd;
}

int NetCMClientAsyncEventInit(uint32_t clientId) {
    const int fd = create_socket();
    if (fd == -1) {
        QV_TRACE(3, "Error creating async socket. Error = [%s].\n", strerror(errno));
        return -1;
    }
    QV_TRACE(2, "Created async socket [%d]\n", fd);
    QV_TRACE(0, "Connecting to server socket to register async socket [%d]\n", fd);
    if (!connect_to_server(fd)) {
        QV_TRACE(3, "Error connecting to server socket. Error = [%s].\n", strerror(errno));
        close(fd);
        return -1;
    }
    wire::RequestHeader request = {};
    request.Command = wire::NETCM_CLIENT_ASYNC_REGISTER_REQ;
    request.ClientId = clientId;
    if (NetCMSendRequest(fd, &request, sizeof request) != NETCM_SUCCESS) {
        QV_TRACE(3, "Error writing to socket, errno = %d\n", errno);
        close(fd);
        return -1;
    }
    QV_TRACE(0, "Connected socket [%d] to CM server to receive async events\n", fd);
    store(table().AsyncSockFd, fd);
    return fd;
}

uint32_t NetCMClientReRegister(void) {
    close_link();
    for (int attempt = 0; attempt < 3; ++attempt) {
        int32_t client_id = 0;
        const int fd = NetCMClientInit(&client_id);
        if (fd != -1) {
            QV_TRACE(0, "Re-register with CM server is success\n");
            QV_TRACE(0, "New Sock FD : %d\n", fd);
            store(table().ClientId, client_id);
            return NETCM_SUCCESS;
        }
        QV_TRACE(0, "Failed to Re-register with CM server... so Retry : %d \n", attempt);
        forget_failed_link();
    }
    QV_TRACE(0, "Failed to Re-register with CM server\n");
    return NETCM_ERR_REREGISTER_RETRY_EXHAUSTED;
}

// Stops at its first failure; the caller cannot tell success from failure and does not need to.
int32_t NetCMClientExit(int syncFd) {
    static_cast<void>(write_once(pipe_fds[1], &kStopWord, sizeof kStopWord));
    if (receiver_is_this_thread()) {
        // The joining of oneself fails below; whoever is left to clean up is this thread, when it leaves.
        leave_link_to_receiver(syncFd);
    }
    if (!join_receiver())
        return 1;
    close_control_pipe();
    const int async_fd = table().AsyncSockFd;
    if (async_fd != kNoDescriptor) {
        if (close(async_fd) != 0) {
            QV_TRACE(5, "Error closing Async socket. Error = [%s] \n", strerror(errno));
            return 1;
        }
        QV_TRACE(2, "Successfully closed the async socket [%d] \n", async_fd);
    }
    if (close(syncFd) != 0)
        QV_TRACE(5, "Error closing sync socket. Error = [%s] \n", strerror(errno));
    else
        QV_TRACE(2, "Successfully closed the sync socket [%d] \n", syncFd);
    return 1;
}

}  // extern "C"
