#include "client/CM/src/NetCMClientCore/LocalAnswer.h"

#include <cstdlib>

#include "client/CM/src/NetCMClientCore/ConnectionRecord.h"
#include "client/CM/src/NetCMClientCore/Delivery.h"
#include "client/CM/src/NetCMClientInternal/Stream.h"
#include "client/CM/src/NetCMIntf/StopRequest.h"

using namespace quorvel;

namespace {

// A request, and the use that it is about: that of the slot as it is now, when nobody has said which.
struct Asked {
    const NetCMStartRspInfo& block;
    const UseKey* use;

    int32_t thread_index() const { return static_cast<int32_t>(block.ThreadIndex); }
    int32_t profile() const { return static_cast<int32_t>(block.ProfileId); }
    CallKey key() const QV_REQUIRES(table_lock) {
        if (use != nullptr)
            return key_of_use(use->serial);
        return block.CallIndex < NETCM_MAX_CALLS ? key_of(slot(static_cast<int32_t>(block.CallIndex)))
                                                 : CallKey{-1, 0};
    }
};

// What the table says of the use that is asked about.
struct AskedUse {
    bool found = false;  // not when the call has ended, or the thread does not use it any more
    Recipient user = {};
    NetCMCallConnInfo details = {};
};

AskedUse look_up(const Asked& asked) {
    const Lock lock(table_lock);
    AskedUse use;
    use.user = {asked.key(), -1, asked.thread_index(), asked.profile(), {}, nullptr};
    const Call call = find(use.user.key);
    if (!call)
        return use;
    use.user.entry = entry_holding(*call.record, asked.thread_index(), asked.profile());
    if (use.user.entry < 0)
        return use;
    use.user.use = *use_of(call, use.user.entry, asked.profile());
    use.found = asked.use == nullptr || asked.use->serial == use.user.use.serial;
    use.user.callback = callback_of(asked.thread_index());
    use.details = call.record->ConnInfo;
    return use;
}

bool tell_open(const AskedUse& use, bool once) {
    NetCMConnInfo info = deliverable(use.details, use.user.profile);
    const NetCMEvent event = {NETCM_EVENT_OPEN_RSP, use.user.profile, 0, &info};
    return once ? tell_opened(use.user, event) : tell_user(use.user, event);
}

void answer_open(const Asked& asked) QV_REQUIRES(app_mutex) {
    const AskedUse use = look_up(asked);
    const bool once = asked.use != nullptr;
    // The server's own answer, or a close, may have come first.
    if (!use.found || (once && use.user.use.opening != Opening::Due))
        return;
    QV_TRACE(0, "Found thread-profile entry in thread index [%d] \n", asked.thread_index());
    if (tell_open(use, once))
        QV_TRACE(0, "Response sent to the application \n");
}

// Takes the profile out of its entry. Whether the entry is empty then.
bool give_up(const Asked& asked, CallKey key) QV_REQUIRES(app_mutex) {
    int32_t entry = -1;
    bool is_empty = false;
    {
        const Lock lock(table_lock);
        const Call call = find(key);
        entry = call ? entry_holding(*call.record, asked.thread_index(), asked.profile()) : -1;
        if (entry < 0)
            return false;
        is_empty = take_profile(call, entry, asked.profile());
    }
    trace_deleted(asked.profile(), entry);
    if (!is_empty)
        QV_TRACE(0, "Thread has an active call with other profile\n");
    return is_empty;
}

void answer_close(const Asked& asked) QV_REQUIRES(app_mutex) {
    const AskedUse use = look_up(asked);
    if (!use.found) {
        QV_TRACE(2, "Thread index not found... never come here\n");
        return;
    }
    // Nobody hears of the end before he has heard of the beginning.
    if (use.user.use.opening == Opening::Due)
        tell_open(use, true);
    const NetCMEvent closed = {NETCM_EVENT_CLOSE_RSP, asked.profile(), 0, nullptr};
    if (!tell_ended(use.user, closed))  // not reached: only between two steps
        return;                         // not reached: only between two steps
    QV_TRACE(0, "Response sent to the client \n");
    if (!give_up(asked, use.user.key))
        return;
    QV_TRACE(0, "Thread has no other active calls. Clear the thread index from call list\n");
    stop_if_left(use.user.key, asked.profile());
}

bool is_unsure(const Asked& asked) {
    const Lock lock(table_lock);
    const Call call = find(asked.key());
    return call && (is_unsure(call, asked.profile()) || count_perhaps_here(call) != 0);
}

// Who is put to a call that may have ended belongs to the next one then: he is told of that one, and when he
// closes at once, he may be its last user, and the server has to be told.
void wait_until_sure(const Asked& asked) {
    for (uint32_t passes = async_stream.passes(); is_unsure(asked); passes = async_stream.passes())
        async_stream.wait_for_another_pass(passes);
}

void post_start(void* block, const UseKey* use) {
    const auto* request = static_cast<const NetCMStartRspInfo*>(block);
    QV_TRACE(0, "In __start_conn_thread to send local start response to call id = %d \n res = %u ",
             static_cast<int>(request->CallIndex), narrow(block));
    const AppMutexGuard guard(QV_HERE);
    answer_open({*request, use});
    free(block);
    QV_TRACE(0, "ThreadPostStartEvent.. Close the thread \n");
}

void post_stop(void* block, const UseKey* use) {
    const auto* request = static_cast<const NetCMStartRspInfo*>(block);
    QV_TRACE(0, "In __stop_conn_thread to send local stop response to tid [%d] \n",
             static_cast<int>(request->ThreadId));
    if (use != nullptr)
        wait_until_sure({*request, use});
    const AppMutexGuard guard(QV_HERE);
    answer_close({*request, use});
    free(block);
    QV_TRACE(0, "__stop_conn_thread.. Close the thread \n");
}

void* run_start(void* request) {
    const CancelHold hold;
    post_start(request, &static_cast<LocalRequest*>(request)->use);
    return nullptr;
}

void* run_start_when_sure(void* request) {
    const auto* const open = static_cast<const LocalRequest*>(request);
    wait_until_sure({open->block, &open->use});
    return run_start(request);
}

void* run_stop(void* request) {
    const CancelHold hold;
    post_stop(request, &static_cast<LocalRequest*>(request)->use);
    return nullptr;
}

void* (*body_of(LocalAnswerKind kind))(void*) {
    switch (kind) {
        case LocalAnswerKind::Open:
            return run_start;
        case LocalAnswerKind::OpenWhenSure:
            return run_start_when_sure;
        default:
            return run_stop;
    }
}

}  // namespace

namespace quorvel {

LocalRequest* make_local_request(const NetCMStartRspInfo& block, UseKey use) {
    auto* request = static_cast<LocalRequest*>(malloc(sizeof(LocalRequest)));
    if (request != nullptr)
        *request = {block, use};
    return request;
}

int start_local_thread(LocalAnswerKind kind, LocalRequest* request, pthread_t& thread) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    const int error = pthread_create(&thread, &attributes, body_of(kind), request);
    pthread_attr_destroy(&attributes);
    if (error != 0)
        free(request);
    return error;
}

}  // namespace quorvel

extern "C" {

void* ThreadPostStartEvent(void* block) {
    if (block != nullptr)
        post_start(block, nullptr);
    return nullptr;
}

void* ThreadPostStopEvent(void* block) {
    if (block != nullptr)
        post_stop(block, nullptr);
    return nullptr;
}

}  // extern "C"
