// The receiver thread: waits for pushed records and hands each to the processor of its code.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "client/CM/src/NetCMClientInternal/Receiver.h"

#include "client/CM/src/NetCMClientInternal/DescriptorSet.h"
#include "client/CM/src/NetCMClientInternal/Stream.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Exported.h"
#include "common/Wire.h"

using namespace quorvel;

namespace {

void dispatch(const uint32_t* record) QV_REQUIRES(app_mutex) {
    switch (record[0]) {
        case wire::NETCM_CLIENT_START_RSP:
            QV_TRACE(0, "Received start response from server \n");
            NetCMClientProcesStartRsp(record);
            break;
        case wire::NETCM_CLIENT_STOP_RSP:
            QV_TRACE(0, "Received stop response from server \n");
            NetCMClientProcesStopRsp(record);
            break;
        case wire::NETCM_CLIENT_TUNNEL_RSP:
            QV_TRACE(0, "Received tunnel response from server \n");
            NetCMClientProcesTunnelRsp(record);
            break;
        case wire::NETCM_CLIENT_KILL_RSP:
            QV_TRACE(0, "Received kill response from server \n");
            NetCMClientProcesKillRsp(record);
            break;
        case wire::NETCM_CLIENT_STOP_IND:
            QV_TRACE(0, "Received stop indication from server \n");
            NetCMClientProcesStopInd(record);
            break;
        case wire::NETCM_CLIENT_SUSPEND_IND:
            QV_TRACE(0, "Received Suspend indication from server \n");
            NetCMClientProcessSuspendInd(record);
            break;
        case wire::NETCM_CLIENT_RESUME_IND:
            QV_TRACE(0, "Received Resume indication from server \n");
            NetCMClientProcessResumeInd(record);
            break;
        case wire::NETCM_CLIENT_TUNNEL_IND:
            QV_TRACE(0, "Received tunnel indication from server \n");
            NetCMClientProcesTunnelInd(record);
            break;
        case wire::NETCM_CLIENT_PROPER_PROFILE_RSP:
            QV_TRACE(0, "Received proper profile response from server \n");
            NetCMClientProcessProperProfRsp(record);
            break;
        case wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND:
            QV_TRACE(0, "Received PDP/WLAN status change indication from server \n");
            NetCMClientProcessNetworkStatusChangeInd(record);
            break;
        case wire::NETCM_CLIENT_IP_CHANGE_IND:
            QV_TRACE(0, "Received IP change indication from server \n");
            NetCMClientProcesIpChangeInd(record);
            break;
        default:
            QV_TRACE(2, "Unknown command %d \n", static_cast<int>(record[0]));
            break;
    }
}

// The record in hand, which everybody can see while it is handled.
class PendingRecord {
  public:
    PendingRecord() : record_(static_cast<wire::Record*>(malloc(sizeof(wire::Record)))) {
        if (record_ != nullptr)
            *record_ = {};
        show(words());
    }
    ~PendingRecord() {
        // A callback may have taken the link down and set it up anew: the new receiver has its own record in
        // hand.
        if (shown() == words())
            show(nullptr);
        free(record_);
    }
    PendingRecord(const PendingRecord&) = delete;
    PendingRecord& operator=(const PendingRecord&) = delete;
    wire::Record* get() const { return record_; }
    const uint32_t* words() const { return reinterpret_cast<const uint32_t*>(record_); }
    static const uint32_t* shown() { return load(*exported::pending_event_record); }

  private:
    static void show(const uint32_t* words) {
        store(*exported::pending_event_record, const_cast<uint32_t*>(words));
    }

    wire::Record* record_;
};

ssize_t read_record(int fd, wire::Record& record) {
    return async_stream.is(fd) ? async_stream.read_record(record) : read(fd, &record, sizeof record);
}

enum class Pass { Again, Stop, Reset };

// One wait, and what came of it.
Pass receive(DescriptorSet& readable, const Receiver& self) {
    const int async_fd = self.async_fd();
    const int control_fd = self.control_fd();
    readable.clear();
    readable.add(async_fd);
    readable.add(control_fd);
    QV_TRACE(0, "In quorvel Thread loop \n");
    QV_TRACE(0, "Pointers rfds = %d\n", static_cast<int>(narrow(readable.get())));
    QV_TRACE(0, "clientsocket = %d, pipe_fds[0] = %d\n", async_fd, control_fd);
    if (select(control_fd + 1, readable.get(), nullptr, nullptr, nullptr) == -1) {
        QV_TRACE(2, "Error in select. Error = [%s] \n", strerror(errno));
        return Pass::Again;
    }
    QV_TRACE(0, "In Thread, read  data \n");
    if (readable.contains(control_fd) && receiver_is_told_to_stop(control_fd)) {
        QV_TRACE(2, "Quorvel client deregistration is detected. Close the async recv thread \n");
        return Pass::Stop;
    }
    if (!readable.contains(async_fd))
        return Pass::Again;
    if (NetCMClientLibCbk(async_fd) <= 0)
        return Pass::Reset;
    // The stream may be another receiver's since a callback.
    if (!self.has_left() && async_stream.is(async_fd))  // not reached: only between two steps
        async_stream.note_handled();
    return Pass::Again;
}

Pass receive_until_the_end(const Receiver& self) {
    DescriptorSet readable(std::max(self.async_fd(), self.control_fd()));
    if (!readable.valid()) {
        QV_TRACE(4, "PANIC!!! Memory not allocated\n");
        return Pass::Reset;
    }
    Pass pass = Pass::Again;
    while (pass == Pass::Again && !self.has_left())
        pass = receive(readable, self);
    return self.has_left() ? Pass::Stop : pass;
}

}  // namespace

extern "C" {

void* NetCMClientThread(void* asyncFd) {
    const int async_fd = static_cast<int>(reinterpret_cast<intptr_t>(asyncFd));
    Receiver self(async_fd);
    const ReceiverScope scope;
    const CancelHold hold;
    QV_TRACE(2, "In Quorvel Thread, pid = %d, ppid = %d, tid = %d\n", getpid(), getppid(),
             NetCMGetCurrentTid());
    QV_TRACE(0, "Client socket received = %d \n", async_fd);
    if (async_fd < 1) {
        QV_TRACE(2, "No Active sockets.. Close the thread.. \n");
        store(exported::app_info->RecvThreadId, kNoThread);
        return nullptr;
    }
    if (receive_until_the_end(self) == Pass::Stop)
        return nullptr;
    QV_TRACE(2, "Quorvel connection got reset, close the thread \n");
    // The async socket stays open; the re-registration closes it.
    self.end_link();
    return nullptr;
}

int32_t NetCMClientLibCbk(int asyncFd) {
    if (async_stream.is(asyncFd)) {
        const int32_t dropped = async_stream.drop_skipped();
        if (dropped > 0)
            return dropped;
    }
    const PendingRecord record;
    if (record.get() == nullptr) {
        QV_TRACE(4, "PANIC!!! Memory not allocated\n");
        return -1;
    }
    if (load(exported::app_info->AsyncSockFd) == kNoDescriptor) {
        QV_TRACE(4, "Invalid Async socket \n");
        return -1;
    }
    errno = 0;
    const ssize_t received = read_record(asyncFd, *record.get());
    if (received < 1) {
        QV_TRACE(5, "Error reading sock, connection closed. Error = [%s]\n", strerror(errno));
        return static_cast<int32_t>(received);
    }
    // A short record is not completed: its missing words are 0.
    QV_TRACE(2, "Received data from CM %d.. struct size = %d\n", static_cast<int>(received),
             static_cast<int>(sizeof(wire::Record)));
    const AppMutexGuard guard(QV_HERE);
    const HandlingRecord handling(async_stream.is(asyncFd) ? async_stream.record_at() : kEverything);
    if (PendingRecord::shown() == nullptr)                // not reached: only between two steps
        QV_TRACE(3, "Error!! Received Null pointer \n");  // not reached: only between two steps
    else
        dispatch(record.words());
    return static_cast<int32_t>(received);
}

}  // extern "C"
