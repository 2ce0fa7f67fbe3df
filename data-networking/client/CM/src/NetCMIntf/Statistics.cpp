// The counters of a call.
#include <algorithm>

#include "client/CM/src/NetCMIntf/Request.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

namespace {
constexpr uint32_t kHighestLevel = 4;
}

extern "C" {

uint32_t NetCMGetStatInfo(uint32_t stat[6]) {
    if (stat == nullptr) {
        QV_TRACE(5, "Invalid input parameter\n");
        return NETCM_ERR_INVALID_PARAM;
    }
    if (!registered(QV_HERE))
        return NETCM_ERR_NOT_REGISTERED;
    const wire::RequestHeader request = request_header(wire::NETCM_CLIENT_GET_STAT_INFO_REQ);
    const AppMutexGuard guard(QV_HERE);
    wire::Record answer;
    const uint32_t status =
        ask(QV_HERE, request, wire::NETCM_CLIENT_GET_STAT_INFO_RSP, answer, {.send = SendFailure::TwoBlanks});
    if (status != NETCM_SUCCESS)
        return status;
    if (answer.Status != 0) {
        QV_TRACE(3, "Error reading call statistics info. Error = %d \n", static_cast<int>(answer.Status));
        return answer.Status;
    }
    wire::StatisticsBlock block;
    if (NetCMClientReadMoreData(table().SyncSockFd, &block, sizeof block) != NETCM_SUCCESS) {
        QV_TRACE(3, "Error reading call statistics response\n");
        return NETCM_ERR_FAILURE;
    }
    QV_TRACE(0, "Successfully retrieved Call statistics info\n");
    std::copy(std::begin(block.Counter), std::end(block.Counter), stat);
    return NETCM_SUCCESS;
}

uint32_t NetCMResetStatInfo(uint32_t level) {
    QV_TRACE(0, "Request to reset statistics information \n");
    if (!registered(QV_HERE))
        return NETCM_ERR_NOT_REGISTERED;
    if (level > kHighestLevel) {
        QV_TRACE(5, "Invalid Reset Level [%d]\n", static_cast<int>(level));
        return NETCM_ERR_INVALID_PARAM;
    }
    wire::RequestHeader request = request_header(wire::NETCM_CLIENT_RESET_STAT_INFO_REQ);
    request.Arg4 = level;
    const AppMutexGuard guard(QV_HERE);
    wire::Record answer;
    const uint32_t status = ask(QV_HERE, request, wire::NETCM_CLIENT_RESET_STAT_INFO_RSP, answer,
                                {.send = SendFailure::TwoBlanks});
    if (status != NETCM_SUCCESS)
        return status;
    if (answer.Status != 0) {
        QV_TRACE(3, "Failed to reset the requested call statistics info\n");
        return answer.Status;
    }
    QV_TRACE(0, "Successfully reset the requested call statistics info\n");
    return NETCM_SUCCESS;
}

}  // extern "C"
