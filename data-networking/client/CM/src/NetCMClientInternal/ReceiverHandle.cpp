#include "client/CM/src/NetCMClientInternal/ReceiverHandle.h"

#include "client/CM/src/NetCMClientInternal/ControlPipe.h"
#include "client/CM/src/NetCMIntf/Table.h"
#include "client/CM/src/NetCMPrivate.h"

namespace quorvel {
namespace {

// Guards the decision between join and detach. Taken with or without the application mutex, and nothing is
// locked under it.
pthread_mutex_t handle_mutex = PTHREAD_MUTEX_INITIALIZER;
bool being_joined = false;

struct LeftBehind {
    bool anything = false;
    int sync_fd = kNoDescriptor;
    int async_fd = kNoDescriptor;
    int pipe_ends[2] = {kNoDescriptor, kNoDescriptor};
};
thread_local LeftBehind left_behind;

class HandleGuard {
  public:
    HandleGuard() { pthread_mutex_lock(&handle_mutex); }
    ~HandleGuard() { pthread_mutex_unlock(&handle_mutex); }
    HandleGuard(const HandleGuard&) = delete;
    HandleGuard& operator=(const HandleGuard&) = delete;
};

}  // namespace

bool claim_receiver(pthread_t& receiver) {
    const HandleGuard guard;
    receiver = load(table().RecvThreadId);
    being_joined = receiver != kNoThread;
    return being_joined;
}

void release_receiver(bool joined) {
    const HandleGuard guard;
    being_joined = false;
    if (joined)
        store(table().RecvThreadId, kNoThread);
}

ReceiverLife::ReceiverLife() {
    left_behind = {};
}

ReceiverLife::~ReceiverLife() {
    if (!left_behind.anything)
        return;
    pthread_detach(pthread_self());
    close_descriptor(left_behind.sync_fd);
    close_descriptor(left_behind.async_fd);
    close_descriptor(left_behind.pipe_ends[0]);
    close_descriptor(left_behind.pipe_ends[1]);
}

// Runs without the application mutex: whoever holds it may wait for an answer of the server that has gone.
void ReceiverLife::end_on_reset() QV_NO_THREAD_SAFETY_ANALYSIS {
    const HandleGuard guard;
    // The link was taken down, and perhaps set up anew, from one of our callbacks.
    if (left_behind.anything || being_joined)
        return;
    store(g_NetCMClientAppInfo.RecvThreadId, kNoThread);
    pthread_detach(pthread_self());
}

bool receiver_is_this_thread() {
    const pthread_t receiver = load(table().RecvThreadId);
    return receiver != kNoThread && pthread_equal(receiver, pthread_self()) != 0;
}

void leave_link_to_receiver(int sync_fd) {
    left_behind = {.anything = true,
                   .sync_fd = sync_fd,
                   .async_fd = load(table().AsyncSockFd),
                   .pipe_ends = {pipe_fds[0], pipe_fds[1]}};
    pipe_fds[0] = kNoDescriptor;
    pipe_fds[1] = kNoDescriptor;
}

}  // namespace quorvel
