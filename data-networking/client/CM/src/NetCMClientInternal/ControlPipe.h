// The pipe through which the receiver thread is told to stop.
#pragma once

#include "common/AppMutex.h"

namespace quorvel {

// Makes the pipe. The receiver's select counts its descriptors from the read end, which is therefore placed
// above both sockets. False with errno set where there is none to be had.
bool make_control_pipe() QV_REQUIRES(app_mutex);

// The same, unless there is a pipe already that lies above both sockets.
bool have_control_pipe() QV_REQUIRES(app_mutex);

void close_control_pipe() QV_REQUIRES(app_mutex);

// The read end, for the receiver.
int control_pipe_to_read() QV_REQUIRES(app_mutex);

// Gives both ends away: they are the receiver's to close.
struct PipeEnds {
    int read;
    int write;
};
PipeEnds give_control_pipe_away() QV_REQUIRES(app_mutex);

// Closes a descriptor of the link, once: it reads as "none" from then on.
void close_descriptor(int& fd);

void tell_receiver_to_stop() QV_REQUIRES(app_mutex);
// Reads one word. Any other word is ignored.
bool receiver_is_told_to_stop(int control_fd);

}  // namespace quorvel
