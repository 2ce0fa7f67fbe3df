#include "client/PM/src/NetPMIntf/StoreExchange.h"

#include <algorithm>
#include <cstring>

#include "client/CM/src/NetCMIntf/Request.h"
#include "client/PM/src/NetPMIntf/StoreMessages.h"
#include "client/PM/src/NetPMPrivate.h"
#include "common/CancelHold.h"

namespace quorvel {
namespace {

void trace_sent(const StoreRequest& request) {
    switch (request.command) {  // not reached: for the compiler
#define X(command, sent, refused, done) \
    case wire::command:                 \
        sent;                           \
        break;
        QV_STORE_MESSAGES(X)
#undef X
    }
}

void trace_refused(wire::PmCommand command, uint32_t error) {
    switch (command) {  // not reached: for the compiler
#define X(command, sent, refused, done) \
    case wire::command:                 \
        refused;                        \
        break;
        QV_STORE_MESSAGES(X)
#undef X
    }
}

void trace_done(wire::PmCommand command, int32_t profile) {
    switch (command) {  // not reached: for the compiler
#define X(command, sent, refused, done) \
    case wire::command:                 \
        done;                           \
        break;
        QV_STORE_MESSAGES(X)
#undef X
    }
}

uint32_t not_registered(wire::PmCommand command) {
    if (command == wire::NETPM_CLIENT_MODIFY_PROFILE_REQ)
        QV_TRACE(5, "Client is not registered with CM\n");
    else
        QV_TRACE(5, "Cleint is not registered with CM\n");
    return NETCM_ERR_NOT_REGISTERED;
}

wire::PmRequestHeader header_of(const StoreRequest& request) {
    return {.Command = request.command,
            .ProfileId = request.profile_id,
            .Arg = request.arg,
            .DataLength = static_cast<uint32_t>(request.data.size()),
            .Arg2 = request.arg2};
}

uint32_t exchange(const StoreRequest& request, StoreAnswer& answer) QV_REQUIRES(app_mutex) {
    const wire::PmRequestHeader header = header_of(request);
    HeapBlock joined;
    if (!request.data.empty()) {
        joined = HeapBlock::joining(&header, sizeof header, request.data.data(), header.DataLength);
        if (!joined)
            return NETCM_ERR_FAILURE;
    }
    const void* payload = joined ? joined.data() : &header;
    const uint32_t length = joined ? joined.size() : sizeof header;
    PmRspContext context = {.ExtLength = 0, .pRspData = &answer.block, .pExtRspData = nullptr};
    const uint32_t status = NetPMSendReceiveSync(payload, length, &context);
    answer.ext = HeapBlock(context.pExtRspData, context.ExtLength);
    if (status != NETCM_SUCCESS)
        QV_TRACE(2, "Error in sending/receiving the Request to/from Server Reason = %d \n", status);
    return status;
}

uint32_t give_up(const StoreRequest& request, uint32_t status) {
    if (request.new_id != nullptr)
        *request.new_id = -1;
    return status;
}

uint32_t finish(const StoreRequest& request, const StoreAnswer& answer, ResultTaker results) {
    const wire::PmResponseBlock& block = answer.block;
    if (block.RspCode != wire::kPmAnswer + request.command)
        return give_up(request, NETCM_ERR_FAILURE);
    if (block.Error != 0) {
        give_up(request, block.Error);
        trace_refused(request.command, block.Error);
        return block.Error;
    }
    if (request.new_id != nullptr)
        *request.new_id = block.ProfileId;
    results.take(answer, results.operation);
    trace_done(request.command, block.ProfileId);
    return NETCM_SUCCESS;
}

}  // namespace

void StoreAnswer::copy_ext_to(void* out, size_t room) const {
    if (ext)
        memcpy(out, ext.data(), std::min<size_t>(ext.size(), room));
}

uint32_t ask_store(const StoreRequest& request, ResultTaker results) {
    const CancelHold hold;
    if (!client_is_registered())
        return not_registered(request.command);
    const AppMutexGuard lock(QV_HERE);
    // The last thread may have deregistered while this one waited: the link is not to be brought up again.
    if (!client_is_registered())
        return not_registered(request.command);
    const uint32_t repaired = repair_link(QV_HERE);
    if (repaired != NETCM_SUCCESS)
        return repaired;
    trace_sent(request);
    StoreAnswer answer;
    const uint32_t status = exchange(request, answer);
    return status == NETCM_SUCCESS ? finish(request, answer, results) : give_up(request, status);
}

}  // namespace quorvel
