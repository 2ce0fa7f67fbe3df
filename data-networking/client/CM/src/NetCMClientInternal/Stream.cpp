#include "client/CM/src/NetCMClientInternal/Stream.h"

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/Futex.h"
#include "common/KeepErrno.h"
#include "common/PmWire.h"

namespace quorvel {
namespace {

// More of what nobody has asked for is a server that does not stop.
constexpr size_t kMostUnasked = size_t{16} << 20;

Position handled_at = kEverything;

int waiting_in(int fd) {
    int waiting = 0;
    return ioctl(fd, FIONREAD, &waiting) == 0 ? waiting : 0;
}

// The bytes that follow an answer.
uint64_t block_behind(const wire::Record& answer) {
    if (answer.Code == wire::NETPM_PROFILE_RSP)
        return reinterpret_cast<const wire::PmResponseBlock*>(&answer.Word1)->ExtDataLength;
    if (answer.Status != 0)
        return 0;
    switch (answer.Code) {
        case wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_RSP:
            return sizeof(wire::ProfileIdBlock);
        case wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_RSP:
            return sizeof(wire::ProfileNameBlock);
        case wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_RSP:
            return sizeof(wire::ActiveConnectionBlock);
        case wire::NETCM_CLIENT_GET_STAT_INFO_RSP:
            return sizeof(wire::StatisticsBlock);
        default:
            return 0;
    }
}

// Of an attempt to read without waiting: a closed socket is left to whoever reads the next record.
int32_t nothing_came(ssize_t got) {
    return got < 0 && errno == EAGAIN ? 1 : 0;
}

int32_t limit_of_block_behind(const wire::Record& answer) {
    return answer.Code == wire::NETPM_PROFILE_RSP ? kSyncLimitMs : kBlockLimitMs;
}

}  // namespace

void SyncStream::owes_answer(const wire::Record& part, size_t have, Deadline limit) {
    answer_ = part;
    have_ = have;
    limit_ = limit;
}

void SyncStream::owes_block(uint64_t bytes, Deadline limit) {
    block_ = bytes;
    limit_ = limit;
}

SyncStream::State SyncStream::drop_owed(int fd) {
    while (have_ < sizeof answer_ || block_ > 0) {
        short events = 0;
        const int32_t left = limit_.left_ms();
        const int ready = left > 0 ? wait_to_read(fd, left, Signals::Interrupt, events) : 0;
        if (ready == 0)
            return State::Lost;
        if (ready < 0)
            return State::Owing;
        char part[4096];
        const size_t wanted = have_ < sizeof answer_
                                  ? sizeof answer_ - have_
                                  : static_cast<size_t>(std::min<uint64_t>(block_, sizeof part));
        const ssize_t got = recv(fd, part, wanted, MSG_DONTWAIT);
        if (got <= 0) {
            // Nothing comes from a server that has hung up.
            begins();
            return State::InStep;
        }
        if (have_ == sizeof answer_) {
            block_ -= static_cast<uint64_t>(got);
            continue;
        }
        memcpy(reinterpret_cast<char*>(&answer_) + have_, part, static_cast<size_t>(got));
        have_ += static_cast<size_t>(got);
        if (have_ < sizeof answer_)
            continue;
        owes_block(block_behind(answer_), Deadline::in(limit_of_block_behind(answer_)));
        if (block_ > wire::kLargestExtData)
            return State::Lost;
    }
    return State::InStep;
}

SyncStream::State SyncStream::drop_unasked(int fd) {
    const KeepErrno keep;
    char part[4096];
    for (size_t dropped = 0; dropped < kMostUnasked; dropped += sizeof part)
        if (recv(fd, part, sizeof part, MSG_DONTWAIT) <= 0)
            return State::InStep;
    return State::Lost;
}

void AsyncStream::begins(int fd) {
    skip_ = 0;
    block_may_follow_ = false;
    held_length_ = 0;
    {
        const Lock lock(table_lock);
        handled_ = taken_;
    }
    store(fd_, fd);
}

// Taken and counted in one step, so that `end_of_arrived` is exact. The lock is not held where a read could
// wait.
ssize_t AsyncStream::read_some(int fd, void* buf, size_t len, int flags) {
    if (flags != 0 || waiting_in(fd) > 0)
        return take(fd, buf, len, flags);
    // The end of the stream, mostly.
    const ssize_t got = read(fd, buf, len);
    const Lock lock(table_lock);
    count_taken(got);
    return got;
}

ssize_t AsyncStream::take(int fd, void* buf, size_t len, int flags) {
    const Lock lock(table_lock);
    const ssize_t got = flags == 0 ? read(fd, buf, len) : recv(fd, buf, len, flags);
    count_taken(got);
    return got;
}

void AsyncStream::count_taken(ssize_t got) {
    taken_ += got > 0 ? static_cast<Position>(got) : 0;
}

Reading AsyncStream::read_block(void* buf, size_t len) {
    const auto take_some = [](int fd, void* to, size_t size) { return async_stream.take(fd, to, size, 0); };
    return read_whole(Reader::Block, fd_, buf, len, Signals::Held, take_some);
}

Position AsyncStream::end_of_arrived() {
    const Lock lock(table_lock);
    return taken_ + static_cast<Position>(waiting_in(load(fd_)));
}

void AsyncStream::note_handled() {
    {
        const Lock lock(table_lock);
        handled_ = taken_ - held_length_;
    }
    ++passes_;
    if (waiters_ != 0)
        wake_all(passes_);
}

void AsyncStream::wait_for_another_pass(uint32_t passes) {
    constexpr int32_t kMoment = 100;
    ++waiters_;
    wait_while(passes_, passes, kMoment);
    --waiters_;
}

// Nothing follows an event that was made by hand.
void AsyncStream::skip(uint64_t bytes) {
    if (event_position() != kEverything)
        skip_ += bytes;
}

void AsyncStream::skip_block_that_may_follow() {
    block_may_follow_ = event_position() != kEverything;
}

int32_t AsyncStream::drop_skipped() {
    char part[4096];
    if (skip_ == 0)
        return block_may_follow_ ? tell_block_from_record() : 0;
    const ssize_t got =
        read_some(fd_, part, static_cast<size_t>(std::min<uint64_t>(skip_, sizeof part)), MSG_DONTWAIT);
    if (got <= 0)
        return nothing_came(got);
    skip_ -= static_cast<uint64_t>(got);
    return static_cast<int32_t>(got);
}

int32_t AsyncStream::tell_block_from_record() {
    constexpr uint32_t kHighestCount = 100;
    const ssize_t got = read_some(fd_, held_ + held_length_, sizeof held_ - held_length_, MSG_DONTWAIT);
    if (got <= 0)
        return nothing_came(got);
    held_length_ += static_cast<size_t>(got);
    if (held_length_ < sizeof held_)
        return static_cast<int32_t>(got);
    block_may_follow_ = false;
    uint32_t first = 0;
    memcpy(&first, held_, sizeof first);
    if (first <= kHighestCount) {
        held_length_ = 0;
        skip_ = sizeof(wire::ConnectionBlock) - sizeof first;
        return static_cast<int32_t>(got);
    }
    // It is a record: the rest of it is read when it is there.
    return waiting_in(fd_) > 0 ? 0 : static_cast<int32_t>(got);
}

ssize_t AsyncStream::read_record(wire::Record& record) {
    const size_t held = held_length_;
    memcpy(&record, held_, held);
    const ssize_t got = read_some(fd_, reinterpret_cast<char*>(&record) + held, sizeof record - held, 0);
    if (got <= 0)
        return got;
    held_length_ = 0;
    const Lock lock(table_lock);
    const ssize_t whole = got + static_cast<ssize_t>(held);
    record_at_ = taken_ - static_cast<Position>(whole);
    return whole;
}

Position event_position() {
    return handled_at;
}

HandlingRecord::HandlingRecord(Position at) {
    handled_at = at;
}
HandlingRecord::~HandlingRecord() {
    handled_at = kEverything;
}

}  // namespace quorvel
