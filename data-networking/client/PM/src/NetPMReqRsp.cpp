// Requests to the profile manager and its answers, on the sync socket of the server link.
#include <cstdlib>
#include <cstring>

#include "client/CM/src/NetCMClientInternal/Link.h"
#include "client/CM/src/NetCMClientInternal/Stream.h"
#include "client/CM/src/NetCMIntf/Request.h"
#include "client/CM/src/NetCMPrivate.h"
#include "client/PM/src/NetPMPrivate.h"
#include "common/HeapBlock.h"

using namespace quorvel;

namespace {

wire::RequestHeader header_for(uint32_t cmd) {
    wire::RequestHeader header = request_header(static_cast<wire::Command>(cmd));
    header.Arg3 = header.Arg4 = static_cast<uint32_t>(-1);
    return header;
}

// The stream goes by what cannot be taken, before the next request; a length that no answer has is none to
// wait for.
void leave_ext_data(uint32_t length) QV_REQUIRES(app_mutex) {
    if (length > wire::kLargestExtData)
        lose_link();
    else
        sync_stream.owes_block(length, Deadline::in(kSyncLimitMs));
}

}  // namespace

extern "C" {

uint32_t NetCMSendPMReq(uint32_t cmd, const void* payload, uint32_t length) {
    const wire::RequestHeader header = header_for(cmd);
    const HeapBlock message = HeapBlock::joining(&header, sizeof header, payload, length);
    if (!message) {
        QV_TRACE(4, "Memory allocation for tempBuf failed\n");
        return NETCM_ERR_FAILURE;
    }
    const uint32_t status = NetCMSendRequest(table().SyncSockFd, message.data(), message.size());
    if (status != NETCM_SUCCESS)
        QV_TRACE(3, "Error Sending request to CM Server %d\n", static_cast<int>(status));
    else
        QV_TRACE(2, "Sent Request to the CM server %d\n", static_cast<int>(message.size()));
    return status;
}

int32_t NetCMReadSyncRsp(int32_t event, uint32_t* out) {
    uint32_t record[10] = {};
    const uint32_t status = NetCMReadResponse(table().SyncSockFd, static_cast<uint32_t>(event), record);
    if (status != NETCM_SUCCESS) {
        QV_TRACE(3, "Error Receiving Response from CM Server %d\n", static_cast<int>(status));
        return static_cast<int32_t>(status);
    }
    QV_TRACE(2, "Received response = %d \n", event);
    if (event == wire::NETPM_PROFILE_RSP)
        memcpy(out, record + 1, sizeof(wire::PmResponseBlock));
    else if (event == wire::NETCM_CLIENT_PROPER_PROFILE_RSP)
        memcpy(out, record + 1, sizeof(wire::AppProfMsg));
    return NETCM_SUCCESS;
}

uint32_t NetCMClientReadMoreSyncData(void* buffer, int32_t length) {
    const int32_t got = NetCMReadSocket(table().SyncSockFd, buffer, static_cast<uint32_t>(length));
    if (got > 0)
        return NETCM_SUCCESS;
    QV_TRACE(3, "Error reading socket, retval = %d\n", got);
    return NETCM_ERR_FAILURE;
}

uint32_t NetPMSendReceiveSync(const void* request, uint32_t length, PmRspContext* ctx) {
    const uint32_t sent = NetCMSendPMReq(wire::NETPM_PROFILE_REQ, request, length);
    if (sent != NETCM_SUCCESS) {
        QV_TRACE(3, "Error Sending request to CM server. Error = %d \n", static_cast<int>(sent));
        return sent;
    }
    const int32_t received =
        NetCMReadSyncRsp(wire::NETPM_PROFILE_RSP, reinterpret_cast<uint32_t*>(ctx->pRspData));
    if (received != NETCM_SUCCESS)
        return static_cast<uint32_t>(received);
    const uint32_t ext_length = ctx->pRspData->ExtDataLength;
    QV_TRACE(2, "!!!!Extended Data Length [%d]!!!!\n", static_cast<int>(ext_length));
    if (ext_length == 0)
        return NETCM_SUCCESS;
    ctx->ExtLength = ext_length;
    ctx->pExtRspData = ext_length <= wire::kLargestExtData ? calloc(1, ext_length) : nullptr;
    if (ctx->pExtRspData == nullptr) {
        QV_TRACE(4, "Memory allocation failed \n");
        leave_ext_data(ext_length);
        return NETCM_ERR_FAILURE;
    }
    QV_TRACE(2, "NetPMReadSyncRsp ::: pRspData->pExtRspData   = %u\n", narrow(ctx->pExtRspData));
    const uint32_t read = NetCMClientReadMoreSyncData(ctx->pExtRspData, static_cast<int32_t>(ext_length));
    if (read != NETCM_SUCCESS) {
        QV_TRACE(2, "NetPMReadSyncRsp ::: FREEING pRspData->pExtRspData   = %u\n", narrow(ctx->pExtRspData));
        free(ctx->pExtRspData);
        ctx->pExtRspData = nullptr;
    }
    return read;
}

uint32_t NetPMAppProfSendSyncReq(const void* request, uint32_t length) {
    QV_TRACE(2, "<++++++++\tNETPM_APPPROF_REQ =  [%d]\t+++++++++>\n", wire::NETPM_APPPROF_REQ);
    return NetCMSendPMReq(wire::NETPM_APPPROF_REQ, request, length);
}

int32_t NetPMAppProfRecvSyncRsp(void* out, uint32_t) {
    constexpr int32_t event = wire::NETCM_CLIENT_PROPER_PROFILE_RSP;
    QV_TRACE(2, "<++++++++\tNETPM_APPPROF_RSP =  [%d]\t+++++++++>\n", event);
    return NetCMReadSyncRsp(event, static_cast<uint32_t*>(out));
}

}  // extern "C"
