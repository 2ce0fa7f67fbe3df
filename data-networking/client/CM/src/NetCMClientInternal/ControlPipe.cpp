#include "client/CM/src/NetCMClientInternal/ControlPipe.h"

#include <algorithm>

#include "client/CM/src/NetCMClientInternal/WriteOnce.h"
#include "client/CM/src/NetCMIntf/Table.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Descriptor.h"

extern "C" {
int pipe_fds[2] = {quorvel::kNoDescriptor, quorvel::kNoDescriptor};
}

namespace quorvel {
namespace {

constexpr uint32_t kStopWord = 1;

int highest_socket() QV_REQUIRES(app_mutex) {
    return std::max(table().SyncSockFd, table().AsyncSockFd);
}

}  // namespace

bool make_control_pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    pipe_fds[0] = at_least(highest_socket() + 1, ends[0]);
    pipe_fds[1] = at_least(kLowestDescriptor, ends[1]);
    if (pipe_fds[0] >= 0 && pipe_fds[1] >= 0)
        return true;
    close_control_pipe();
    return false;
}

bool have_control_pipe() {
    if (pipe_fds[0] > highest_socket())
        return true;
    close_control_pipe();
    return make_control_pipe();
}

void close_descriptor(int& fd) {
    if (fd > 0)
        close(fd);
    store(fd, kNoDescriptor);
}

void close_control_pipe() {
    close_descriptor(pipe_fds[0]);
    close_descriptor(pipe_fds[1]);
}

void tell_receiver_to_stop() {
    // A receiver that is gone does not need to be told.
    static_cast<void>(write_once(pipe_fds[1], &kStopWord, sizeof kStopWord));
}

bool receiver_is_told_to_stop(int control_fd) {
    uint32_t word = 0;
    return read(control_fd, &word, sizeof word) > 0 && word == kStopWord;
}

}  // namespace quorvel
