// Tunnel data to the server, and the registration for tunnel data from it.
#include <cstdlib>
#include <cstring>

#include "client/CM/src/NetCMIntf/Query.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

namespace {

// The first free entry, or -1.
int32_t free_entry() QV_REQUIRES(app_mutex) {
    const Lock lock(table_lock);
    for (int32_t i = 0; i < NETCM_MAX_TUNNELS; ++i)
        if (table().TunnelReq[i].ThreadId == -1 && table().TunnelReq[i].RequestId == -1)
            return i;
    return -1;
}

void note_request(int32_t index, int32_t request_id) QV_REQUIRES(app_mutex) {
    const int32_t tid = NetCMGetCurrentTid();
    const Lock lock(table_lock);
    table().TunnelReq[index] = {tid, request_id};
}

// Header and data in one write. A length that cannot be had fails like an allocation.
uint32_t send_tunnel_request(const NetCMTunnelData& record) QV_REQUIRES(app_mutex) {
    wire::RequestHeader header = request_header(wire::NETCM_CLIENT_TUNNEL_REQ);
    header.Arg3 = static_cast<uint32_t>(record.Param);
    header.Arg4 = record.DataLength;
    if (record.DataLength > UINT32_MAX - sizeof header)
        return NETCM_ERR_FAILURE;
    const uint32_t length = record.DataLength + static_cast<uint32_t>(sizeof header);
    auto* message = static_cast<char*>(malloc(length));
    if (message == nullptr)
        return NETCM_ERR_FAILURE;
    memcpy(message, &header, sizeof header);
    if (record.DataLength != 0)
        memcpy(message + sizeof header, record.Data, record.DataLength);
    const uint32_t status = NetCMWriteSocket(table().SyncSockFd, message, length);
    free(message);
    return status;
}

uint32_t tunnel_refused(const wire::Record& answer) QV_REQUIRES(app_mutex) {
    QV_TRACE(3, "Error in tunnel request = %d \n", static_cast<int>(answer.Status));
    int32_t thread_index = -1;
    if (NetCMGetThreadIndex(NetCMGetCurrentTid(), &thread_index) == 0)  // not reached: checked before
        table().ThreadInfo[thread_index].LastSyncError = static_cast<int32_t>(answer.Word5);
    QV_TRACE(3, "Reason  = %d, Index = %d\n", static_cast<int>(answer.Word5), thread_index);
    return answer.Status;
}

// What registering for tunnel indications and its opposite have of their own: codes and wording.
struct Registering {
    static constexpr wire::Command kCommand = wire::NETCM_CLIENT_REGISTER_TUNNEL_IND_REQ;
    static constexpr wire::Event kAnswer = wire::NETCM_CLIENT_REGISTER_TUNNEL_IND_RSP;
    static void requested() { QV_TRACE(0, "Request to register for receiving tunnel indication\n"); }
    static void succeeded() { QV_TRACE(0, "Successfully registered to receive tunnel indication\n"); }
    static void refused(int error) {
        QV_TRACE(3, "Error registering to receive tunnel ind. Error = %d \n", error);
    }
};

struct Deregistering {
    static constexpr wire::Command kCommand = wire::NETCM_CLIENT_DEREGISTER_TUNNEL_IND_REQ;
    static constexpr wire::Event kAnswer = wire::NETCM_CLIENT_DEREGISTER_TUNNEL_IND_RSP;
    static void requested() { QV_TRACE(0, "Request to de-register for receiving tunnel indication\n"); }
    static void succeeded() { QV_TRACE(0, "Successfully de-registered for tunnel indication\n"); }
    static void refused(int error) {
        QV_TRACE(3, "Error de-registering for tunnel ind. Error = %d \n", error);
    }
};

// Behind a repair the server knows the client by a new id.
uint32_t use_current_id(Here, wire::RequestHeader& request) QV_REQUIRES(app_mutex) {
    request.ClientId = static_cast<uint32_t>(table().ClientId);
    return NETCM_SUCCESS;
}

template <class Change>
uint32_t register_with_server() {
    Change::requested();
    if (!registered(QV_HERE))
        return NETCM_ERR_NOT_REGISTERED;
    const Query query = {
        .request = request_header(Change::kCommand), .answer = Change::kAnswer, .complete = use_current_id};
    return ask(
        QV_HERE, query,
        [](const wire::Record&) -> uint32_t {
            Change::succeeded();
            return NETCM_SUCCESS;
        },
        Change::refused);
}

}  // namespace

extern "C" {

uint32_t NetCMClientRegisterTunnelInd(void) {
    return register_with_server<Registering>();
}

uint32_t NetCMClientDeRegisterTunnelInd(void) {
    return register_with_server<Deregistering>();
}

uint32_t NetCMTunnelRequest(NetCMTunnelData* record) {
    if (record == nullptr || (record->Data == nullptr && record->DataLength != 0)) {
        QV_TRACE(5, "NULL pointer variable passed\n");
        return NETCM_ERR_INVALID_PARAM;
    }
    const AppMutexGuard guard(QV_HERE);
    int32_t thread_index = 0;
    const uint32_t status = admit_caller(QV_HERE, guard.thread_id(), UnknownThread::IsNotFound, thread_index);
    if (status != NETCM_SUCCESS)
        return status;
    const int32_t entry = free_entry();
    if (entry < 0) {
        QV_TRACE(2, "No free tunnel info entries\n");
        return NETCM_ERR_NO_FREE_TUNNEL_ENTRY;
    }
    return NetCMClientTunnelRequest(record, entry);
}

uint32_t NetCMClientTunnelRequest(NetCMTunnelData* record, int32_t index) {
    if (send_tunnel_request(*record) != NETCM_SUCCESS)
        return NETCM_ERR_FAILURE;
    QV_TRACE(2, "Sent Tunnel Request to the CM server \n");
    wire::Record answer = {};
    if (NetCMReadResponse(table().SyncSockFd, wire::NETCM_CLIENT_TUNNEL_RSP, &answer.Code) != NETCM_SUCCESS)
        return NETCM_ERR_FAILURE;
    QV_TRACE(2, "Received response = %d \n", static_cast<int>(answer.Code));
    if (answer.Status != 0)
        return tunnel_refused(answer);
    record->RequestId = answer.CallId;
    note_request(index, static_cast<int32_t>(answer.CallId));
    QV_TRACE(0, "Inserted tunnel reference in free index :%d, request id :%d\n", index,
             static_cast<int>(answer.CallId));
    return NETCM_SUCCESS;
}

}  // extern "C"
