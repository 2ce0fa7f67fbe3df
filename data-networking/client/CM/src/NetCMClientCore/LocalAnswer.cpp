#include "client/CM/src/NetCMClientCore/LocalAnswer.h"

#include <atomic>
#include <cstdlib>

#include "client/CM/src/NetCMClientCore/ConnectionRecord.h"
#include "client/CM/src/NetCMClientCore/Delivery.h"
#include "client/CM/src/NetCMIntf/StopRequest.h"

using namespace quorvel;

namespace {

// Threads on their way to the mutex, and the calls that they answer for. A call may end before they have it,
// and begin anew with the same user and profile: what they come for is over then. Atomic, since the end of
// the link ends calls without the mutex. Where there is no place left, a thread goes untracked.
struct Underway {
    std::atomic<pthread_t> thread{};
    std::atomic<int32_t> call_index{kNoCall};

    static constexpr int32_t kNoCall = -1;
    static constexpr int32_t kOvertaken = -2;
};
Underway underway[64];

void track(pthread_t thread, int32_t call_index) {
    for (Underway& place : underway) {
        if (place.call_index != Underway::kNoCall)
            continue;
        place.thread = thread;
        place.call_index = call_index;
        return;
    }
}

// Whether the call of this thread has ended since the thread was started. Asked once.
bool is_overtaken() {
    for (Underway& place : underway)
        if (place.call_index != Underway::kNoCall && pthread_equal(place.thread, pthread_self()) != 0)
            return place.call_index.exchange(Underway::kNoCall) == Underway::kOvertaken;
    return false;
}

// The entry of the block's thread that holds its profile, or null.
NetCMThreadProf* asking_entry(const NetCMStartRspInfo& request) QV_REQUIRES(app_mutex) {
    if (is_overtaken() || request.CallIndex >= NETCM_MAX_CALLS)
        return nullptr;
    NetCMCallInfo& call = table().CallInfo[request.CallIndex];
    const int32_t entry = entry_of(call, static_cast<int32_t>(request.ThreadIndex));
    if (entry < 0 || !holds(call.ThreadProf[entry], static_cast<int32_t>(request.ProfileId)))
        return nullptr;
    return &call.ThreadProf[entry];
}

void answer_open(const NetCMStartRspInfo& request) QV_REQUIRES(app_mutex) {
    const NetCMThreadProf* entry = asking_entry(request);
    if (entry == nullptr)
        return;
    QV_TRACE(0, "Found thread-profile entry in thread index [%d] \n", entry->ThreadIndex);
    const auto profile = static_cast<int32_t>(request.ProfileId);
    NetCMConnInfo info = deliverable(table().CallInfo[request.CallIndex].ConnInfo, profile);
    deliver(entry->ThreadIndex, {NETCM_EVENT_OPEN_RSP, profile, 0, &info});
    QV_TRACE(0, "Response sent to the application \n");
}

void answer_close(const NetCMStartRspInfo& request) QV_REQUIRES(app_mutex) {
    NetCMThreadProf* entry = asking_entry(request);
    if (entry == nullptr) {
        QV_TRACE(2, "Thread index not found... never come here\n");
        return;
    }
    NetCMCallInfo& call = table().CallInfo[request.CallIndex];
    const auto profile = static_cast<int32_t>(request.ProfileId);
    deliver(entry->ThreadIndex, {NETCM_EVENT_CLOSE_RSP, profile, 0, nullptr});
    QV_TRACE(0, "Response sent to the client \n");
    remove_profile(call, *entry, profile);
    if (!holds_nothing(*entry)) {
        QV_TRACE(0, "Thread has an active call with other profile\n");
        return;
    }
    QV_TRACE(0, "Thread has no other active calls. Clear the thread index from call list\n");
    release(*entry);
    stop_if_left(call, profile);
}

}  // namespace

namespace quorvel {

int start_local_thread(void* (*entry)(void*), NetCMStartRspInfo* block, pthread_t& thread) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    const auto call_index = static_cast<int32_t>(block->CallIndex);
    const int error = pthread_create(&thread, &attributes, entry, block);
    pthread_attr_destroy(&attributes);
    if (error != 0)
        free(block);
    else
        track(thread, call_index);
    return error;
}

void overtake_local_answers(int32_t call_index) {
    for (Underway& place : underway) {
        int32_t of_call = call_index;
        place.call_index.compare_exchange_strong(of_call, Underway::kOvertaken);
    }
}

}  // namespace quorvel

extern "C" {

void* ThreadPostStartEvent(void* block) {
    if (block == nullptr)
        return nullptr;
    auto* request = static_cast<NetCMStartRspInfo*>(block);
    QV_TRACE(0, "In __start_conn_thread to send local start response to call id = %d \n res = %u ",
             static_cast<int>(request->CallIndex), narrow(block));
    const AppMutexGuard guard(QV_HERE);
    answer_open(*request);
    free(block);
    QV_TRACE(0, "ThreadPostStartEvent.. Close the thread \n");
    return nullptr;
}

void* ThreadPostStopEvent(void* block) {
    if (block == nullptr)
        return nullptr;
    auto* request = static_cast<NetCMStartRspInfo*>(block);
    QV_TRACE(0, "In __stop_conn_thread to send local stop response to tid [%d] \n",
             static_cast<int>(request->ThreadId));
    const AppMutexGuard guard(QV_HERE);
    answer_close(*request);
    free(block);
    QV_TRACE(0, "__stop_conn_thread.. Close the thread \n");
    return nullptr;
}

}  // extern "C"
