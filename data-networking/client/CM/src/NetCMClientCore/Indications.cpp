// What the network does to calls without being asked.
#include "client/CM/src/NetCMClientCore/ConnectionRecord.h"
#include "client/CM/src/NetCMClientCore/Delivery.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

namespace {

// An indication about a call, and the call.
struct Indicated {
    wire::Record record;
    CallKey key;
    Position at;
};

// The frame of an indication about a call: finds the call, changes its record, and hands on.
template <class Change, class Use>
uint32_t for_indicated_call(const uint32_t* record, Change change, Use use) QV_REQUIRES(app_mutex) {
    if (is_null_record(record))
        return NETCM_ERR_INVALID_PARAM;
    Indicated indicated = {as_record(record), {-1, 0}, event_position()};
    bool found = false;
    bool changed = false;
    {
        const Lock lock(table_lock);
        const Call call =
            call_named(indicated.record.CallId, static_cast<int32_t>(indicated.record.Word2), indicated.at);
        found = static_cast<bool>(call);
        if (found) {
            indicated.key = key_of(call);
            changed = change(call, indicated.at);
        }
    }
    if (!found) {
        trace_not_active(indicated.record);
        return NETCM_ERR_NOT_ACTIVE;
    }
    QV_TRACE(0, "Call exists for the callid [%d] \n", static_cast<int>(indicated.record.CallId));
    return use(indicated, changed);
}

void indicate(const Indicated& indicated, uint32_t type, void* reason, Tell tell_one = tell_user) {
    const uint32_t status = indicated.record.Status;
    tell_everyone(indicated.key, indicated.at,
                  {type, -1, static_cast<int32_t>(status), reason_of(status, reason)}, tell_one);
}

}  // namespace

extern "C" {

uint32_t NetCMClientProcessNetworkStatusChangeInd(const uint32_t* record) {
    if (is_null_record(record))
        return NETCM_ERR_INVALID_PARAM;
    const wire::Record& indication = as_record(record);
    int32_t states[2] = {static_cast<int32_t>(indication.Word2), static_cast<int32_t>(indication.CallId)};
    tell_registered({NETCM_EVENT_NETWORK_STATUS_IND, -1, 0, states}, [](int32_t thread_id) {
        QV_TRACE(0, "Sent PS state change indication to thread [%d]\n", thread_id);
    });
    return NETCM_SUCCESS;
}

// A call whose end has been asked for keeps what is to come for it, whatever its state says meanwhile.
uint32_t NetCMClientProcessSuspendInd(const uint32_t* record) {
    return for_indicated_call(
        record,
        [](const Call& call, Position) {
            call.record->CallState = kSuspended;
            return true;
        },
        [](const Indicated& indicated, bool) -> uint32_t {
            int32_t suspended = 1;
            indicate(indicated, NETCM_EVENT_SUSPEND_IND, &suspended);
            return NETCM_SUCCESS;
        });
}

uint32_t NetCMClientProcessResumeInd(const uint32_t* record) {
    return for_indicated_call(
        record,
        [](const Call& call, Position) {
            const bool was_suspended = call.record->CallState == kSuspended;
            if (was_suspended)
                call.record->CallState = kResumed;
            return was_suspended;
        },
        [](const Indicated& indicated, bool was_suspended) -> uint32_t {
            if (!was_suspended) {
                QV_TRACE(2, "Callid [%d] not in suspend state \n", static_cast<int>(indicated.record.CallId));
                return NETCM_ERR_FAILURE;
            }
            int32_t suspended = 0;
            indicate(indicated, NETCM_EVENT_RESUME_IND, &suspended);
            return NETCM_SUCCESS;
        });
}

uint32_t NetCMClientProcesStopInd(const uint32_t* record) {
    return for_indicated_call(
        record,
        [](const Call& call, Position at) QV_REQUIRES(table_lock) {
            // Nobody joins it from now on.
            begin_telling(call, at);
            return true;
        },
        [](Indicated& indicated, bool) -> uint32_t {
            indicate(indicated, NETCM_EVENT_STOP_IND, &indicated.record.Word5, tell_ended);
            const Lock lock(table_lock);
            if (const Call call = find(indicated.key))
                end_uses(call, indicated.at);
            return NETCM_SUCCESS;
        });
}

// Tells the first thread of the call that holds the profile, and no other: one user of an address renews it
// for all.
uint32_t NetCMClientProcesIpChangeInd(const uint32_t* record) {
    if (is_null_record(record))
        return NETCM_ERR_INVALID_PARAM;
    const wire::Record& indication = as_record(record);
    const auto profile = static_cast<int32_t>(indication.Word2);
    QV_TRACE(0, "IP change indication. Call ID = %d Profile ID = %d\n", static_cast<int>(indication.CallId),
             profile);
    CallKey key = {-1, 0};
    if (!find_call(key, [&](Position at)
                            QV_REQUIRES(table_lock) { return call_named(indication.CallId, profile, at); })) {
        trace_not_active(indication);
        if (indication.Status == 0)
            async_stream.skip_block_that_may_follow();
        return NETCM_ERR_INVALID_PARAM;
    }
    if (indication.Status != 0)
        return NETCM_SUCCESS;
    wire::ConnectionBlock block;
    if (!read_connection_block(block))
        return NETCM_ERR_FAILURE;
    NetCMConnInfo info = {};
    {
        const Lock lock(table_lock);
        const Call call = find(key);
        // The end of the server may have come between.
        if (!call)                 // not reached: only between two steps
            return NETCM_SUCCESS;  // not reached: only between two steps
        store_connection(call.record->ConnInfo, block, EmptyName::Kept);
        info = deliverable(call.record->ConnInfo, profile);
    }
    Users users(key, profile, event_position());
    Recipient user;
    if (users.next(user)) {
        trace_response(user);
        tell_user(user, {NETCM_EVENT_IP_CHANGE_IND, profile, 0, &info});
    }
    return NETCM_SUCCESS;
}

}  // extern "C"
