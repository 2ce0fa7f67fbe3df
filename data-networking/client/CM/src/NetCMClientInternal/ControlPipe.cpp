#include "client/CM/src/NetCMClientInternal/ControlPipe.h"

#include <algorithm>

#include "client/CM/src/NetCMClientInternal/Reading.h"
#include "client/CM/src/NetCMIntf/Table.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Descriptor.h"
#include "common/Exported.h"
#include "common/KeepErrno.h"
#include "common/OwnDescriptors.h"

extern "C" {
// Shows the pipe; nothing here reads it.
int pipe_fds[2] = {quorvel::kNoDescriptor, quorvel::kNoDescriptor};
}

int (*quorvel::exported::control_pipe)[2] = &pipe_fds;

namespace quorvel {
namespace {

constexpr uint32_t kStopWord = 1;
constexpr PipeEnds kNoPipe = {kNoDescriptor, kNoDescriptor};

PipeEnds pipe_ends QV_GUARDED_BY(app_mutex) = kNoPipe;

void show_pipe() QV_REQUIRES(app_mutex) {
    store((*exported::control_pipe)[0], pipe_ends.read);
    store((*exported::control_pipe)[1], pipe_ends.write);
}

int highest_socket() QV_REQUIRES(app_mutex) {
    return std::max(table().SyncSockFd, table().AsyncSockFd);
}

}  // namespace

bool make_control_pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    pipe_ends.read = at_least(highest_socket() + 1, ends[0]);
    pipe_ends.write = at_least(kLowestDescriptor, ends[1]);
    if (pipe_ends.read < 0 || pipe_ends.write < 0) {
        const KeepErrno keep;
        close_control_pipe();
        return false;
    }
    note_descriptor(pipe_ends.read);
    note_descriptor(pipe_ends.write);
    show_pipe();
    return true;
}

bool have_control_pipe() {
    if (pipe_ends.read > highest_socket())
        return true;
    close_control_pipe();
    return make_control_pipe();
}

int control_pipe_to_read() {
    return pipe_ends.read;
}

PipeEnds give_control_pipe_away() {
    const PipeEnds given = pipe_ends;
    pipe_ends = kNoPipe;
    show_pipe();
    return given;
}

void close_descriptor(int& fd) {
    if (fd > 0)
        close_own(fd);
    store(fd, kNoDescriptor);
}

void close_control_pipe() {
    close_descriptor(pipe_ends.read);
    close_descriptor(pipe_ends.write);
    show_pipe();
}

void tell_receiver_to_stop() {
    // A receiver that is gone does not need to be told. One that is there must not miss it: the end of the
    // pipe says the same, and cannot fail.
    if (write_whole(pipe_ends.write, &kStopWord, sizeof kStopWord) > 0)
        return;
    close_descriptor(pipe_ends.write);
    show_pipe();
}

bool receiver_is_told_to_stop(int control_fd) {
    uint32_t word = 0;
    const ssize_t got = read(control_fd, &word, sizeof word);
    return got == 0 || (got > 0 && word == kStopWord);
}

}  // namespace quorvel
