// The counters of a call.
#include <algorithm>

#include "client/CM/src/NetCMIntf/Query.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

namespace {

constexpr uint32_t kHighestLevel = 4;

uint32_t read_counters(uint32_t* stat) QV_REQUIRES(app_mutex) {
    wire::StatisticsBlock block;
    if (NetCMClientReadMoreData(table().SyncSockFd, &block, sizeof block) != NETCM_SUCCESS) {
        QV_TRACE(3, "Error reading call statistics response\n");
        return NETCM_ERR_FAILURE;
    }
    QV_TRACE(0, "Successfully retrieved Call statistics info\n");
    std::copy(std::begin(block.Counter), std::end(block.Counter), stat);
    return NETCM_SUCCESS;
}

}  // namespace

extern "C" {

uint32_t NetCMGetStatInfo(uint32_t stat[6]) {
    if (stat == nullptr) {
        QV_TRACE(5, "Invalid input parameter\n");
        return NETCM_ERR_INVALID_PARAM;
    }
    if (!registered(QV_HERE))
        return NETCM_ERR_NOT_REGISTERED;
    const Query query = {.request = request_header(wire::NETCM_CLIENT_GET_STAT_INFO_REQ),
                         .answer = wire::NETCM_CLIENT_GET_STAT_INFO_RSP,
                         .send_failure = SendFailure::TwoBlanks};
    return ask(
        QV_HERE, query, [&](const wire::Record&) QV_REQUIRES(app_mutex) { return read_counters(stat); },
        [](int error) { QV_TRACE(3, "Error reading call statistics info. Error = %d \n", error); });
}

uint32_t NetCMResetStatInfo(uint32_t level) {
    QV_TRACE(0, "Request to reset statistics information \n");
    if (!registered(QV_HERE))
        return NETCM_ERR_NOT_REGISTERED;
    if (level > kHighestLevel) {
        QV_TRACE(5, "Invalid Reset Level [%d]\n", static_cast<int>(level));
        return NETCM_ERR_INVALID_PARAM;
    }
    Query query = {.request = request_header(wire::NETCM_CLIENT_RESET_STAT_INFO_REQ),
                   .answer = wire::NETCM_CLIENT_RESET_STAT_INFO_RSP,
                   .send_failure = SendFailure::TwoBlanks};
    query.request.Arg4 = level;
    return ask(
        QV_HERE, query,
        [](const wire::Record&) -> uint32_t {
            QV_TRACE(0, "Successfully reset the requested call statistics info\n");
            return NETCM_SUCCESS;
        },
        [](int) { QV_TRACE(3, "Failed to reset the requested call statistics info\n"); });
}

}  // extern "C"
