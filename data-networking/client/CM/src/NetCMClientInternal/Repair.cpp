// The server link after its set-up: repair it when the server has gone away, take it down at the end.
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "client/CM/src/NetCMClientInternal/ControlPipe.h"
#include "client/CM/src/NetCMClientInternal/Link.h"
#include "client/CM/src/NetCMClientInternal/Receiver.h"
#include "client/CM/src/NetCMClientInternal/Stream.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Exported.h"
#include "common/Futex.h"
#include "common/OwnDescriptors.h"

using namespace quorvel;

extern "C" {
uint32_t* PendingEventRecord = nullptr;
}

uint32_t** quorvel::exported::pending_event_record = &PendingEventRecord;

namespace {

// A link that is lost has its receiver still, for a moment.
bool is_lost QV_GUARDED_BY(app_mutex) = false;

constexpr int32_t kFarewellLimitMs = 1000;

void close_link() QV_REQUIRES(app_mutex) {
    close_control_pipe();
    close_descriptor(table().AsyncSockFd);
    close_descriptor(table().SyncSockFd);
    async_stream.ends();
    is_lost = false;
}

void forget_what_the_server_took() {
    const Lock lock(table_lock);
    forget_pending_requests();
}

bool is_up() QV_REQUIRES(app_mutex) {
    return load(table().RecvThreadId) != kNoThread;
}

bool all_is_told() QV_REQUIRES(app_mutex) {
    return farewells_under_way.load() == 0 && !(is_lost && is_up());
}

// The calling thread, when it is the receiver of the link as it is now.
Receiver* receiver_of_the_link() QV_REQUIRES(app_mutex) {
    return is_up() && pthread_equal(load(table().RecvThreadId), pthread_self()) != 0 ? Receiver::self()
                                                                                     : nullptr;
}

// A link that is taken down from a callback cannot be closed under the receiver's feet.
void leave_link_to(Receiver& receiver, int sync_fd) QV_REQUIRES(app_mutex) {
    receiver.inherit(sync_fd, load(table().AsyncSockFd), give_control_pipe_away());
}

// The record in hand is its receiver's, also of one that has us called back.
void free_pending_record() {
    if (Receiver::self() == nullptr)
        free(__atomic_exchange_n(exported::pending_event_record, nullptr, __ATOMIC_ACQ_REL));
}

// Joins the receiver, which finishes with our lock what it has begun. False when the join failed.
bool join_receiver() QV_REQUIRES(app_mutex) {
    pthread_t receiver = kNoThread;
    if (!claim_receiver(receiver))
        return true;
    int error = EDEADLK;
    // A receiver that takes its own link down is told what the join would tell it, without trying: the thread
    // sanitizer forgets the thread also when its join fails.
    if (pthread_equal(receiver, pthread_self()) == 0) {
        const LentToReceiver lent;
        error = pthread_join(receiver, nullptr);
    }
    release_receiver(error == 0);
    if (error != 0) {
        errno = error;
        QV_TRACE(4, "Error in pthread_join for killing Async thread [%d].. errno = [%s] \n",
                 static_cast<int>(receiver), strerror(error));
        return false;
    }
    QV_TRACE(2, "Successful pthread_join for killed Async thread [%d] \n", static_cast<int>(receiver));
    free_pending_record();
    return true;
}

}  // namespace

namespace quorvel {

void forget_failed_link() {
    table().SyncSockFd = kNoDescriptor;
    store(table().AsyncSockFd, kNoDescriptor);
}

// Both of them: what the server has in mind for the one means nothing without the other.
void lose_link() {
    if (!is_up())
        return;
    is_lost = true;
    shutdown(table().SyncSockFd, SHUT_RDWR);
    shutdown(table().AsyncSockFd, SHUT_RDWR);
}

bool settle_link() {
    if (!is_lost) {
        SyncStream::State state = sync_stream.drop_owed(table().SyncSockFd);
        if (state == SyncStream::State::Owing)
            return false;
        if (state == SyncStream::State::InStep)
            state = sync_stream.drop_unasked(table().SyncSockFd);
        if (state == SyncStream::State::InStep)
            return true;
        lose_link();
    }
    wait_for_farewells();
    return true;
}

int64_t write_request(int fd, const void* buf, size_t len) {
    const bool is_link = fd == table().SyncSockFd;
    if (is_link) {
        const SyncStream::State state = sync_stream.drop_owed(fd);
        if (state == SyncStream::State::Owing)
            return -1;
        if (state == SyncStream::State::Lost)
            lose_link();
    }
    const int64_t written = write_whole(fd, buf, len);
    if (is_link && written > 0 && static_cast<size_t>(written) < len)
        lose_link();
    return written;
}

void wait_for_farewells() {
    // The receiver itself would wait for itself.
    if (Receiver::self() != nullptr || all_is_told())
        return;
    const Deadline deadline = Deadline::in(kFarewellLimitMs);
    const LentToReceiver lent;
    for (;;) {
        const uint32_t told = farewells_told.load();
        const int32_t left = deadline.left_ms();
        if (all_is_told() || left == 0)
            return;
        wait_while(farewells_told, told, left);
    }
}

// What the parent has of a link stays the parent's; its descriptors are closed already.
void link_in_child() QV_NO_THREAD_SAFETY_ANALYSIS {  // there is no other thread
    receivers_in_child();
    Farewell::forget_all();
    NetCMClientLibInit();
    store(table().IsRegistered, 0);
    table().AppId = 0;
    forget_pending_requests();
    is_lost = false;
    static_cast<void>(give_control_pipe_away());
    sync_stream.begins();
    async_stream.ends();
    store(*exported::pending_event_record, nullptr);
}

}  // namespace quorvel

extern "C" {

uint32_t NetCMClientReRegister(void) {
    close_link();
    forget_what_the_server_took();
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
    // The joining of oneself fails below; whoever is left to clean up is this thread, when it leaves.
    if (Receiver* const self = receiver_of_the_link())
        leave_link_to(*self, syncFd);
    if (!join_receiver())
        return 1;
    close_control_pipe();
    async_stream.ends();
    is_lost = false;
    const int async_fd = table().AsyncSockFd;
    if (async_fd != kNoDescriptor) {
        if (close_own(async_fd) != 0) {
            QV_TRACE(5, "Error closing Async socket. Error = [%s] \n", strerror(errno));
            return 1;
        }
        QV_TRACE(2, "Successfully closed the async socket [%d] \n", async_fd);
    }
    if (close_own(syncFd) != 0)
        QV_TRACE(5, "Error closing sync socket. Error = [%s] \n", strerror(errno));
    else
        QV_TRACE(2, "Successfully closed the sync socket [%d] \n", syncFd);
    return 1;
}

}  // extern "C"
