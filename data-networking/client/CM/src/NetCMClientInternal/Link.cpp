// Setting the server link up: connect and register both sockets, start the receiver.
#include "client/CM/src/NetCMClientInternal/Link.h"

#include <cerrno>
#include <cstring>

#include "client/CM/src/NetCMClientInternal/Connect.h"
#include "client/CM/src/NetCMClientInternal/ControlPipe.h"
#include "client/CM/src/NetCMClientInternal/Receiver.h"
#include "client/CM/src/NetCMClientInternal/Stream.h"
#include "client/CM/src/NetCMIntf/Table.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/OwnDescriptors.h"
#include "common/Wire.h"

using namespace quorvel;

namespace {

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
    // Nobody can be known as "none".
    if (response.Status != 0 || static_cast<int32_t>(response.Word1) == -1) {
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

bool have_receiver() QV_REQUIRES(app_mutex) {
    if (load(table().RecvThreadId) != kNoThread)
        return true;
    if (!make_control_pipe()) {
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

}  // namespace

namespace quorvel {

int start_receiver(int async_fd) {
    if (!have_control_pipe())  // not reached: only between two steps
        return errno;          // not reached: only between two steps
    hand_to_receiver(async_fd, control_pipe_to_read());
    // The handle goes straight into the table: a receiver that ends at once must find it there to clear it.
    const int error = pthread_create(&table().RecvThreadId, nullptr, NetCMClientThread,
                                     reinterpret_cast<void*>(static_cast<intptr_t>(async_fd)));
    if (error != 0)
        store(table().RecvThreadId, kNoThread);
    return error;
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
        give_up_connecting(fd);
        return -1;
    }
    int32_t app_id = 0;
    NetCMClientGetAppId(&app_id);
    QV_TRACE(2, "App ID = %d\n", app_id);
    // The table keeps these also when a later step fails; the caller resets it.
    table().AppId = app_id;
    table().SyncSockFd = fd;
    sync_stream.begins();
    if (!register_sync_socket(fd, clientIdOut) || !have_async_socket(*clientIdOut)) {
        close_own(fd);
        return -1;
    }
    if (!have_receiver()) {
        close_own(table().AsyncSockFd);
        close_own(fd);
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
        close_own(fd);
        return -1;
    }
    wire::RequestHeader request = {};
    request.Command = wire::NETCM_CLIENT_ASYNC_REGISTER_REQ;
    request.ClientId = clientId;
    if (NetCMSendRequest(fd, &request, sizeof request) != NETCM_SUCCESS) {
        QV_TRACE(3, "Error writing to socket, errno = %d\n", errno);
        close_own(fd);
        return -1;
    }
    QV_TRACE(0, "Connected socket [%d] to CM server to receive async events\n", fd);
    async_stream.begins(fd);
    store(table().AsyncSockFd, fd);
    return fd;
}

}  // extern "C"
