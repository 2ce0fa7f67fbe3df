#include "client/CM/src/NetCMIntf/Request.h"

#include <cerrno>
#include <cstring>

#include "client/CM/src/NetCMClientInternal/Link.h"
#include "client/CM/src/NetCMClientInternal/Reading.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Exported.h"

using namespace quorvel;

namespace quorvel {

wire::RequestHeader request_header(wire::Command command) {
    wire::RequestHeader header = {};
    header.Command = command;
    header.ClientId = static_cast<uint32_t>(load(exported::app_info->ClientId));
    return header;
}

uint32_t check_caller(Here here, int32_t tid, UnknownThread wording, int32_t& index) {
    if (!client_is_registered()) {
        QV_TRACE_AT(here, 2, "Cleint is not yet registered with CM\n");
        return NETCM_ERR_NOT_REGISTERED;
    }
    if (NetCMGetThreadIndex(tid, &index) == 0)
        return NETCM_SUCCESS;
    if (wording == UnknownThread::IsNotPresent)
        QV_TRACE_AT(here, 2, "Thread information is not present with CM\n");
    else
        QV_TRACE_AT(here, 2, "Thread info not found with CM\n");
    return NETCM_ERR_NOT_REGISTERED;
}

uint32_t repair_link(Here here) {
    if (load(table().RecvThreadId) != kNoThread && !settle_link())
        return NETCM_ERR_FAILURE;
    if (load(table().RecvThreadId) != kNoThread)
        return NETCM_SUCCESS;
    QV_TRACE_AT(here, 2, "CM server connection is broken, Re-Register with CM\n");
    if (NetCMClientReRegister() != NETCM_SUCCESS) {
        QV_TRACE_AT(here, 2, "Failed to Re-Register with CM\n");
        return NETCM_ERR_REREGISTER_FAILED;
    }
    QV_TRACE_AT(here, 2, "CM server connection is re-established\n");
    return NETCM_SUCCESS;
}

uint32_t admit_caller(Here here, int32_t tid, UnknownThread wording, int32_t& index) {
    const uint32_t status = check_caller(here, tid, wording, index);
    return status != NETCM_SUCCESS ? status : repair_link(here);
}

uint32_t send_header(const wire::RequestHeader& header) {
    return NetCMSendRequest(table().SyncSockFd, &header, sizeof header);
}

bool registered(Here here) {
    if (client_is_registered())
        return true;
    QV_TRACE_AT(here, 2, "Cleint is not registered with CM\n");
    return false;
}

}  // namespace quorvel

extern "C" {

uint32_t NetCMWriteSocket(int fd, const void* buf, uint32_t len) {
    if (fd < 1)
        errno = EBADF;
    const int64_t written = fd < 1 ? -1 : write_request(fd, buf, len);
    if (written > 0 && written == len)
        return NETCM_SUCCESS;
    QV_TRACE(3, "Error writing to the socket. Error = %s \n", strerror(errno));
    return NETCM_ERR_FAILURE;
}

}  // extern "C"
