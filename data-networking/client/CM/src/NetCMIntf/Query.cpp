#include "client/CM/src/NetCMIntf/Query.h"

#include "client/CM/src/NetCMPrivate.h"

namespace quorvel {
namespace {

void trace_send_failure(Here here, SendFailure wording) {
    if (wording == SendFailure::TwoBlanks)
        QV_TRACE_AT(here, 2, "Error Sending request to CM  \n");
    else
        QV_TRACE_AT(here, 2, "Error Sending request to CM\n");
}

void trace_read_failure(Here here, ReadFailure wording) {
    if (wording == ReadFailure::Plain)
        QV_TRACE_AT(here, 3, "Error reading response from CM\n");
    else
        QV_TRACE_AT(here, 3, "Error reading response from CM server \n");
}

}  // namespace

uint32_t exchange(Here here, Query query, wire::Record& answer) {
    // The last thread may have left since the check before the lock.
    if (!registered(here))
        return NETCM_ERR_NOT_REGISTERED;
    uint32_t status = repair_link(here);
    if (status == NETCM_SUCCESS && query.complete != nullptr)
        status = query.complete(here, query.request);
    if (status != NETCM_SUCCESS)
        return status;
    if (send_header(query.request) != NETCM_SUCCESS) {
        trace_send_failure(here, query.send_failure);
        return NETCM_ERR_FAILURE;
    }
    if (NetCMReadResponse(table().SyncSockFd, query.answer, &answer.Code) != NETCM_SUCCESS) {
        trace_read_failure(here, query.read_failure);
        return NETCM_ERR_FAILURE;
    }
    const auto code = static_cast<int>(answer.Code);
    if (query.arrival == Arrival::Traced)
        QV_TRACE_AT(here, 2, "Received response = %d \n", code);
    // Reading lets nothing else through; whoever changes that shall not get a wrong answer taken for a right
    // one.
    if (answer.Code != static_cast<uint32_t>(query.answer)) {                 // not reached: checked before
        if (query.arrival == Arrival::Traced)                                 // not reached: checked before
            QV_TRACE_AT(here, 2, "Received invalid response = %d \n", code);  // not reached: checked before
        else
            QV_TRACE_AT(here, 2, "Invalid response = %d \n", code);  // not reached: checked before
        return NETCM_ERR_FAILURE;                                    // not reached: checked before
    }
    return NETCM_SUCCESS;
}

}  // namespace quorvel
