// Who may do what with the receiver's thread handle.
//
// The handle is joined once or detached once. The thread that takes the link down joins it; a receiver whose
// server has gone detaches itself; both may happen at the same moment, and the join may be asked for by the
// receiver itself, from a callback.
#pragma once

#include <pthread.h>

#include "common/AppMutex.h"

namespace quorvel {

// Reserves the handle for a join. False when there is no receiver (any more).
bool claim_receiver(pthread_t& receiver) QV_REQUIRES(app_mutex);
// After the join: takes the handle out of the table when it has been joined.
void release_receiver(bool joined) QV_REQUIRES(app_mutex);

// Around the life of a receiver thread.
class ReceiverLife {
  public:
    ReceiverLife();
    // Closes what `leave_link_to_receiver` has left behind.
    ~ReceiverLife();
    ReceiverLife(const ReceiverLife&) = delete;
    ReceiverLife& operator=(const ReceiverLife&) = delete;

    // The server has gone: marks the link broken and detaches the calling receiver, unless it is being
    // joined.
    void end_on_reset();
};

// Whether the calling thread is the receiver that the table names.
bool receiver_is_this_thread() QV_REQUIRES(app_mutex);
// A link that is taken down from a callback cannot be closed under the receiver's feet: the receiver closes
// its descriptors when it leaves.
void leave_link_to_receiver(int sync_fd) QV_REQUIRES(app_mutex);

}  // namespace quorvel
