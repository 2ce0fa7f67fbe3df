// The life of a receiver thread.
#pragma once

#include <atomic>
#include <cstdint>

#include "client/CM/src/NetCMClientInternal/ControlPipe.h"
#include "client/CM/src/NetCMIntf/Calls.h"
#include "common/AppMutex.h"

namespace quorvel {

// What a receiver has of its own. It reads no other's descriptors: when it begins to run, or has come back
// from a callback, the process may have another link.
class Receiver {
  public:
    explicit Receiver(int async_fd);
    // Closes what a link has left behind that was taken down from one of our callbacks.
    ~Receiver();
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    int async_fd() const { return async_fd_; }
    int control_fd() const { return control_fd_; }
    // Whether the link was taken down from a callback, or the process is the child of a fork.
    bool has_left() const;

    // The server has gone: tells the users of every call, marks the link broken and detaches the thread,
    // unless it is being joined.
    void end_link();

    // The receiver that is the calling thread, or null.
    static Receiver* self();
    // Takes over the descriptors of a link that cannot be closed under the receiver's feet.
    void inherit(int sync_fd, int async_fd, PipeEnds control);

  private:
    bool finds_more_to_end(Farewell& farewell);

    int async_fd_;
    int control_fd_;
    uint32_t process_;
    bool left_ = false;
    int inherited_[4] = {kNoDescriptor, kNoDescriptor, kNoDescriptor, kNoDescriptor};
};

// The descriptors that the next receiver begins with.
void hand_to_receiver(int async_fd, int control_fd) QV_REQUIRES(app_mutex);

// Reserves the receiver's handle for a join. False when there is no receiver (any more).
bool claim_receiver(pthread_t& receiver) QV_REQUIRES(app_mutex);
// After the join: takes the handle out of the table when it has been joined.
void release_receiver(bool joined) QV_REQUIRES(app_mutex);

// How many receivers are telling the users of a link that has ended, and how many have done so: the word that
// others sleep on.
inline constinit std::atomic<uint32_t> farewells_under_way{0};
inline constinit std::atomic<uint32_t> farewells_told{0};

void receivers_in_child();

}  // namespace quorvel
