// Start and stop responses of the server.
#include <algorithm>

#include "client/CM/src/NetCMClientCore/ConnectionRecord.h"
#include "client/CM/src/NetCMClientCore/Delivery.h"
#include "client/CM/src/NetCMClientCore/LocalAnswer.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/CallTimes.h"
#include "common/Exported.h"

using namespace quorvel;

namespace {

// Leaves it to a thread of the library to tell him of the connection, should it still be his then. False when
// there is none.
bool answer_when_sure(const Recipient& user, const wire::Record& response) {
    note_due(user);
    LocalRequest* const request = make_local_request(
        {0, response.CallId, static_cast<uint32_t>(user.thread_index), response.Word2}, {user.use.serial});
    pthread_t thread{};
    if (request == nullptr || start_local_thread(LocalAnswerKind::OpenWhenSure, request, thread) != 0)
        return false;
    QV_TRACE(0, "Local thread to send open response created, ID = %d \n", static_cast<int>(thread));
    return true;
}

// Tells every thread that opened the profile on this call, not only the first.
uint32_t start_succeeded(CallKey key, const wire::Record& response) QV_REQUIRES(app_mutex) {
    QV_TRACE(0, "PDP Activation is successful \n");
    wire::ConnectionBlock block;
    if (!read_connection_block(block))
        return NETCM_ERR_FAILURE;
    const auto profile = static_cast<int32_t>(response.Word2);
    const Position at = event_position();
    NetCMConnInfo info = {};
    bool is_another_awaited = false;
    {
        const Lock lock(table_lock);
        const Call call = find(key);
        // The end of the server may have come between.
        if (!call)                 // not reached: only between two steps
            return NETCM_SUCCESS;  // not reached: only between two steps
        take_start(call, profile);
        is_another_awaited = is_start_awaited(call, profile);
        if (!is_another_awaited)
            reach_back(call, profile, at);
        store_connection(call.record->ConnInfo, block, EmptyName::Stored);
        call.record->IsActive = 1;
        info = deliverable(call.record->ConnInfo, profile);
    }
    // Also those of a later start: a server that is asked twice before it is up may answer once.
    Users users(key, profile, kEverything);
    Recipient user;
    while (users.next(user)) {
        // The library may have answered itself.
        if (user.use.opening == Opening::Answered)
            continue;
        // What had arrived before a later start was accepted is perhaps of an earlier connection, whose end
        // has arrived, too.
        if (is_another_awaited && user.use.began > at && answer_when_sure(user, response))
            continue;
        trace_response(user);
        tell_opened(user, {NETCM_EVENT_OPEN_RSP, profile, static_cast<int32_t>(response.Status), &info});
    }
    return NETCM_SUCCESS;
}

// Nobody joins it from now on. A refusal that has come together with the answer to the start is of that
// start, although it had arrived by then; one that had come before the server was asked is not, where an
// earlier start of the profile waits for its own. Returns up to where those who are meant may have begun.
Position begin_refusing(CallKey key, int32_t profile, Position at) {
    const Lock lock(table_lock);
    const Call call = find(key);
    if (!call)      // not reached: only between two steps
        return at;  // not reached: only between two steps
    take_start(call, profile);
    const bool is_of_an_earlier = is_start_awaited_behind(call, profile, at);
    if (!is_of_an_earlier)
        reach_back(call, profile, at);
    if (call.life->ending != Ending::Refused)
        begin_telling(call, at);
    return is_of_an_earlier ? at : kEverything;
}

// What is left of a refused call. Should the server refuse its other profiles too, each by itself, their
// users are still told; those of a connection that has been given the id since stay where they are.
void free_refused(CallKey key, Position at) {
    Departure departure;
    const Lock lock(table_lock);
    const Call call = find(key);
    if (!call)   // not reached: only between two steps
        return;  // not reached: only between two steps
    if (key.index >= 0 && departure.possible() && call.life->ending == Ending::Told &&
        count_users(*call.record) != 0) {
        call.life->ending = Ending::Refused;
        return departure.leave(call, kEverything);
    }
    if (call.life->ending != Ending::Refused || count_users(*call.record) == 0)
        end_uses(call, at);
}

// A refused start frees the call with everything that was hung on it, other profiles included.
void start_failed(CallKey key, wire::Record response) QV_REQUIRES(app_mutex) {
    QV_TRACE(2, "Reason Code  = %d \n", static_cast<int>(response.Word5));
    const auto profile = static_cast<int32_t>(response.Word2);
    const NetCMEvent event = {NETCM_EVENT_OPEN_RSP, profile, static_cast<int32_t>(response.Status),
                              reason_of(response.Status, &response.Word5)};
    const Position at = event_position();
    Users users(key, profile, begin_refusing(key, profile, at));
    Recipient user;
    while (users.next(user)) {
        trace_response(user);
        tell_ended(user, event);
        take_told(user);
    }
    free_refused(key, at);
}

void sweep(CallKey key) {
    const Lock lock(table_lock);
    const Call call = find(key);
    if (!call)   // not reached: only between two steps
        return;  // not reached: only between two steps
    release_empty(*call.record);
    if (count_users(*call.record) == 0)
        clean(call);
}

// What a user is told who is stopped before the library's own answer to his open has reached him.
void tell_open_before(const Recipient& user) {
    if (user.use.opening != Opening::Due)
        return;
    NetCMConnInfo info = {};
    {
        const Lock lock(table_lock);
        if (const Call call = find(user.key))  // not reached: only between two steps
            info = deliverable(call.record->ConnInfo, user.profile);
    }
    tell_opened(user, {NETCM_EVENT_OPEN_RSP, user.profile, 0, &info});
}

}  // namespace

extern "C" {

uint32_t NetCMClientProcesStartRsp(const uint32_t* record) {
    if (is_null_record(record))
        return NETCM_ERR_INVALID_PARAM;
    const wire::Record& response = as_record(record);
    QV_TRACE(0, "Response for the callid = %d Profile id = %d\n", static_cast<int>(response.CallId),
             static_cast<int>(response.Word2));
    QV_TRACE(2, "PS Connection Open Rsp time = %f\n", call_answered(*exported::call_act_time));
    QV_TRACE(2, "Total PS Call setup time = %f\n", duration(*exported::call_act_time));
    CallKey key = {-1, 0};
    if (!find_call(key, [&](Position at) QV_REQUIRES(table_lock) {
            return started_call(response.CallId, static_cast<int32_t>(response.Word2), response.Status, at);
        })) {
        trace_not_active(response);
        if (response.Status == 0)
            async_stream.skip_block_that_may_follow();
        return NETCM_ERR_INVALID_PARAM;
    }
    if (response.Status == 0)
        return start_succeeded(key, response);
    start_failed(key, response);
    return NETCM_SUCCESS;
}

uint32_t NetCMClientProcesStopRsp(const uint32_t* record) {
    if (record == nullptr)
        return NETCM_ERR_INVALID_PARAM;
    wire::Record response = as_record(record);
    QV_TRACE(2, "PS Connection Close Rsp time = %f\n", call_answered(*exported::call_deact_time));
    QV_TRACE(2, "Total PS Call Teardown time = %f\n", duration(*exported::call_deact_time));
    const auto profile = static_cast<int32_t>(response.Word2);
    CallKey key = {-1, 0};
    if (!find_call(key, [&](Position at)
                            QV_REQUIRES(table_lock) { return stopped_call(response.CallId, profile, at); })) {
        trace_not_active(response);
        return NETCM_ERR_INVALID_PARAM;
    }
    QV_TRACE(0, "Call exists for the callid [%d] \n", static_cast<int>(response.CallId));
    // Only the first: the close that reached the server came from the call's last user.
    Users users(key, profile, event_position());
    Recipient user;
    if (users.next(user)) {
        tell_open_before(user);
        tell_ended(user, {NETCM_EVENT_CLOSE_RSP, profile, static_cast<int32_t>(response.Status),
                          reason_of(response.Status, &response.Word5)});
        take_told(user);
    }
    sweep(key);
    return NETCM_SUCCESS;
}

}  // extern "C"
