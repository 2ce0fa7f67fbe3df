// Threads come and go; the first brings the server link up, the last takes it down.
#include "client/CM/src/NetCMClientInternal/Link.h"
#include "client/CM/src/NetCMIntf/Calls.h"
#include "client/CM/src/NetCMIntf/Request.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Exported.h"

using namespace quorvel;

namespace {

// The date and time are the release's own, not those of this compilation.
void log_banner() {
    QV_TRACE(0, "======================================\n");
    QV_TRACE(0, "\t Quorvel Library  Version:  4.0 \n");
    QV_TRACE(0, "\n");
    QV_TRACE(0, "\t Test Date = %s\n", "May 10 2010");
    QV_TRACE(0, "\t Test Time = %s\n", "11:44:13");
    QV_TRACE(0, "======================================\n");
}

// Takes the first free thread record for the thread.
uint32_t add_thread(int32_t tid, NetCMEventCallback callback, int32_t& index) QV_REQUIRES(app_mutex) {
    if (find_free_thread(index) != NETCM_SUCCESS) {
        QV_TRACE(2, "Client max. limit reached\n");
        return NETCM_ERR_NO_FREE_ENTRY;
    }
    const Lock lock(table_lock);
    table().ThreadInfo[index].EventCbk = callback;
    store(table().ThreadInfo[index].ThreadId, tid);
    return NETCM_SUCCESS;
}

uint32_t register_further_thread(int32_t tid, NetCMEventCallback callback) QV_REQUIRES(app_mutex) {
    int32_t index = 0;
    if (NetCMGetThreadIndex(tid, &index) == 0) {
        QV_TRACE(2, "Client is already registered with CM\n");
        return NETCM_ERR_ALREADY_REGISTERED;
    }
    const uint32_t status = add_thread(tid, callback, index);
    if (status == NETCM_SUCCESS)
        QV_TRACE(0, "Thread has been registered successfully. App reg count = %d \n", ++table().RegCount);
    return status;
}

// Up to three tries, without a pause between them. Returns the sync socket, or a value below 1.
int connect_with_server(int32_t& client_id) QV_REQUIRES(app_mutex) {
    QV_TRACE(0, "connect with server \n");
    int fd = -1;
    for (int attempt = 0; attempt < 3; ++attempt) {
        fd = NetCMClientInit(&client_id);
        if (fd != -1) {
            QV_TRACE(0, "Success NetCMClientInit to Recovered CMServer\n");
            break;
        }
        QV_TRACE(0, "Failed NetCMClientInit ... so Retry : %d \n", attempt);
        forget_failed_link();
    }
    // Says "Success" of a failure too; log readers look for the -1.
    QV_TRACE(0, "Success NetCMClientInit sockfd : %d\n", fd);
    return fd;
}

uint32_t register_first_thread(int32_t tid, NetCMEventCallback callback) QV_REQUIRES(app_mutex) {
    NetCMClientLibInit();
    int32_t client_id = -1;
    const int fd = connect_with_server(client_id);
    if (fd < 1) {
        QV_TRACE(3, "Unable to connect to CM server\n");
        NetCMClientLibInit();
        return NETCM_ERR_REREGISTER_RETRY_EXHAUSTED;
    }
    int32_t index = 0;
    const uint32_t status = add_thread(tid, callback, index);
    if (status != NETCM_SUCCESS)  // not reached: checked before
        return status;            // not reached: checked before
    NetCMClientAppInfo& info = table();
    store(info.ClientId, client_id);
    info.SyncSockFd = fd;
    info.RegCount = 1;
    store(info.IsRegistered, 1);
    QV_TRACE(0, "Application has been registered successfully. Client Id = %d\n", client_id);
    QV_TRACE(0, "Thread info stored at index [%d] event callback [0x%x]\n", index, narrow(callback));
    return NETCM_SUCCESS;
}

bool has_a_call(int32_t tid) {
    int32_t thread_index = -1;
    {
        const Lock lock(table_lock);
        if (!uses_a_call(tid, thread_index))
            return false;
    }
    QV_TRACE(2, "Thread [%d] is associated with a active call, Thread index = %d \n", tid, thread_index);
    return true;
}

// LastSyncError stays: it is the record's, until the record is given to another thread's first error.
void remove_thread(int32_t index) QV_REQUIRES(app_mutex) {
    const Lock lock(table_lock);
    table().ThreadInfo[index].EventCbk = nullptr;
    store(table().ThreadInfo[index].ThreadId, -1);
    forget_refused(index);
}

void forget_pending() {
    const Lock lock(table_lock);
    forget_pending_requests();
}

void log_removed(int32_t tid, int32_t index) {
    QV_TRACE(0, "Client unregistered successfully. TID = %d\n", tid);
    QV_TRACE(0, "Thread index = %d\n", index);
}

void deregister_last_thread(int32_t tid, int32_t index) QV_REQUIRES(app_mutex) {
    NetCMClientAppInfo& info = table();
    NetCMClientExit(info.SyncSockFd);
    remove_thread(index);
    store(info.ClientId, -1);
    info.SyncSockFd = kNoDescriptor;
    store(info.AsyncSockFd, kNoDescriptor);
    info.RegCount = 0;
    store(info.IsRegistered, 0);
    forget_pending();
    log_removed(tid, index);
    NetCMClientLibInit();
}

}  // namespace

extern "C" {

uint32_t NetCMClientRegister(NetCMEventCallback callback) {
    log_banner();
    if (callback == nullptr) {
        QV_TRACE(5, "Invalid callback function pointer\n");
        return NETCM_ERR_INVALID_PARAM;
    }
    const AppMutexGuard guard(QV_HERE);
    if (table().IsRegistered != 0)
        return register_further_thread(guard.thread_id(), callback);
    return register_first_thread(guard.thread_id(), callback);
}

uint32_t NetCMClientDeRegister(void) {
    QV_TRACE(0, "Unregister Request from client = %d \n", load(exported::app_info->ClientId));
    const AppMutexGuard guard(QV_HERE);
    const int32_t tid = guard.thread_id();
    int32_t index = 0;
    if (table().ClientId == -1 || NetCMGetThreadIndex(tid, &index) != 0) {
        QV_TRACE(2, "Client Not Registered \n");
        return NETCM_ERR_NOT_REGISTERED;
    }
    QV_TRACE(0, "Registration count = %d \n", table().RegCount);
    // Whoever the end of the server has still to be told to is not gone yet.
    wait_for_farewells();
    if (has_a_call(tid))
        return NETCM_ERR_ALREADY_EXISTS;
    if (table().RegCount > 1) {
        remove_thread(index);
        --table().RegCount;
        log_removed(tid, index);
    } else {
        deregister_last_thread(tid, index);
    }
    return NETCM_SUCCESS;
}

// What the server said to this thread's last open; reading does not reset it.
uint32_t NetCMGetTransportError(int32_t* error) {
    if (error == nullptr) {
        QV_TRACE(5, "Invalid input parameter\n");
        return NETCM_ERR_INVALID_PARAM;
    }
    const AppMutexGuard guard(QV_HERE);
    int32_t index = 0;
    const uint32_t status = check_caller(QV_HERE, guard.thread_id(), UnknownThread::IsNotFound, index);
    if (status != NETCM_SUCCESS)
        return status;
    *error = table().ThreadInfo[index].LastSyncError;
    QV_TRACE(0, "Last sync transport error = [%d] for thread [%d]\n", *error, guard.thread_id());
    return NETCM_SUCCESS;
}

}  // extern "C"
