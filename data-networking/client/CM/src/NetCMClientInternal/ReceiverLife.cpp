// Who may do what with the receiver: begin it, join it, leave it behind, and end the link when it finds the
// server gone.
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "client/CM/src/NetCMClientCore/Farewells.h"
#include "client/CM/src/NetCMClientInternal/Receiver.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Exported.h"
#include "common/Futex.h"
#include "common/Process.h"

namespace quorvel {
namespace {

thread_local Receiver* this_receiver = nullptr;

struct Handed {
    int async_fd = kNoDescriptor;
    int control_fd = kNoDescriptor;
};
Handed handed QV_GUARDED_BY(table_lock);
bool being_joined QV_GUARDED_BY(table_lock) = false;

// A receiver that somebody has started by hand takes the pipe that everybody can see.
int take_handed(int async_fd) {
    const Lock lock(table_lock);
    if (handed.async_fd != async_fd)
        return (*exported::control_pipe)[0];
    const int control_fd = handed.control_fd;
    handed = {};
    return control_fd;
}

}  // namespace

Receiver::Receiver(int async_fd)
    : async_fd_(async_fd), control_fd_(take_handed(async_fd)), process_(forks_behind()) {
    this_receiver = this;
}

Receiver::~Receiver() {
    this_receiver = nullptr;
    if (!left_ || process_ != forks_behind())
        return;
    pthread_detach(pthread_self());
    for (int& fd : inherited_)
        close_descriptor(fd);
}

bool Receiver::has_left() const {
    return left_ || process_ != forks_behind();
}

Receiver* Receiver::self() {
    return this_receiver;
}

void Receiver::inherit(int sync_fd, int async_fd, PipeEnds control) {
    left_ = true;
    const int fds[] = {sync_fd, async_fd, control.read, control.write};
    std::copy(std::begin(fds), std::end(fds), inherited_);
}

// Runs without the application mutex: whoever holds it may wait for an answer of the server that has gone.
// What is opened while users are told is ended as well, so the last look and the end of the link are one
// step.
void Receiver::end_link() {
    if (has_left())  // not reached: only between two steps
        return;      // not reached: only between two steps
    farewells_under_way.fetch_add(1);
    {
        Farewell farewell;
        while (finds_more_to_end(farewell))
            tell_farewell(farewell);
    }
    farewells_under_way.fetch_sub(1);
    farewells_told.fetch_add(1);
    wake_all(farewells_told);
}

bool Receiver::finds_more_to_end(Farewell& farewell) {
    {
        const Lock lock(table_lock);
        // The link was taken down, and perhaps set up anew, from one of our callbacks.
        if (has_left())    // not reached: only between two steps
            return false;  // not reached: only between two steps
        if (farewell.take_out())
            return true;
        if (being_joined)  // not reached: only between two steps
            return false;  // not reached: only between two steps
        store(exported::app_info->RecvThreadId, kNoThread);
    }
    pthread_detach(pthread_self());
    return false;
}

void hand_to_receiver(int async_fd, int control_fd) {
    const Lock lock(table_lock);
    handed = {async_fd, control_fd};
}

bool claim_receiver(pthread_t& receiver) {
    const Lock lock(table_lock);
    receiver = load(table().RecvThreadId);
    being_joined = receiver != kNoThread;
    return being_joined;
}

void release_receiver(bool joined) {
    const Lock lock(table_lock);
    being_joined = false;
    if (joined)
        store(table().RecvThreadId, kNoThread);
}

void receivers_in_child() QV_NO_THREAD_SAFETY_ANALYSIS {  // there is no other thread
    handed = {};
    being_joined = false;
    farewells_under_way.store(0);
}

}  // namespace quorvel
