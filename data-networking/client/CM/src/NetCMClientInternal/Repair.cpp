// The server link after its set-up: repair it when the server has gone away, take it down at the end.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "client/CM/src/NetCMClientInternal/ControlPipe.h"
#include "client/CM/src/NetCMClientInternal/Link.h"
#include "client/CM/src/NetCMClientInternal/ReceiverHandle.h"
#include "client/CM/src/NetCMIntf/Table.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

extern "C" {
uint32_t* PendingEventRecord = nullptr;
}

namespace {

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
    // A receiver that takes its own link down is told what the join would tell it, without trying: the thread
    // sanitizer forgets the thread also when its join fails.
    const int error = receiver_is_this_thread() ? EDEADLK : pthread_join(receiver, nullptr);
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

void forget_failed_link() {
    table().SyncSockFd = kNoDescriptor;
    store(table().AsyncSockFd, kNoDescriptor);
}

}  // namespace quorvel

extern "C" {

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
    tell_receiver_to_stop();
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
