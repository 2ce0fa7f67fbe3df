// The two sockets of the link, and what has been promised to be read from them.
//
// An exchange may end before its answer has come whole: what it leaves behind is the stream's debt, read and
// dropped before anything else is, and never taken for another answer.
#pragma once

#include <sys/types.h>

#include <atomic>

#include "client/CM/src/NetCMClientInternal/Reading.h"
#include "client/CM/src/NetCMIntf/Calls.h"
#include "common/Wire.h"

namespace quorvel {

// The socket of requests and their answers.
class SyncStream {
  public:
    // A new socket owes nothing.
    void begins() { *this = {}; }

    // An answer of which only a part has come; its block, should it have one, is owed as well.
    void owes_answer(const wire::Record& part, size_t have, Deadline limit);
    // What is missing of a block.
    void owes_block(uint64_t bytes, Deadline limit);

    enum class State { InStep, Owing, Lost };
    // Drops what is owed, as far as it comes within its own limit. Owing: a signal has interrupted the wait,
    // or it has failed; errno says how. Lost: it has not come.
    State drop_owed(int fd);
    // Drops what nobody has asked for.
    State drop_unasked(int fd);

  private:
    wire::Record answer_ = {};
    size_t have_ = sizeof(wire::Record);  // of the answer
    uint64_t block_ = 0;                  // bytes of a block
    Deadline limit_ = Deadline::over();
};
inline constinit SyncStream sync_stream QV_GUARDED_BY(app_mutex);

// The socket of pushed records. Read by the receiver alone.
class AsyncStream {
  public:
    void begins(int fd);
    void ends() { begins(kNoDescriptor); }
    bool is(int fd) const { return fd > 0 && fd == load(fd_); }

    // Counted as taken.
    ssize_t read_some(int fd, void* buf, size_t len, int flags);
    Reading read_block(void* buf, size_t len);

    // Data behind the record in hand that could not be taken: never read as records.
    void skip(uint64_t bytes) QV_REQUIRES(app_mutex);
    // A connection block may follow it. Records begin with a code above 100, blocks with a count below.
    void skip_block_that_may_follow() QV_REQUIRES(app_mutex);

    // Drops of what is to be skipped what has come. The bytes dropped, or 0: a record is next.
    int32_t drop_skipped();
    // The record that is next. A short one is not completed. The result of the read.
    ssize_t read_record(wire::Record& record);

    // The place of the record in hand, and the end of what has arrived by now.
    Position record_at() const { return record_at_; }
    Position end_of_arrived();

    // Everything before this place has been handled; the receiver says so behind each record.
    Position handled() const QV_REQUIRES(table_lock) { return handled_; }
    void note_handled();
    // A number that changes with it, and a wait for another one: for a moment at most.
    uint32_t passes() const { return passes_; }
    void wait_for_another_pass(uint32_t passes);

  private:
    int32_t tell_block_from_record();
    ssize_t take(int fd, void* buf, size_t len, int flags);
    void count_taken(ssize_t got) QV_REQUIRES(table_lock);

    int fd_ = kNoDescriptor;
    uint64_t skip_ = 0;
    bool block_may_follow_ = false;
    // The beginning of what is next, read to tell what it is.
    unsigned char held_[sizeof(uint32_t)] = {};
    size_t held_length_ = 0;
    Position record_at_ = 0;
    Position taken_ QV_GUARDED_BY(table_lock) = 0;
    Position handled_ QV_GUARDED_BY(table_lock) = 0;
    std::atomic<uint32_t> passes_ = 0;
    std::atomic<uint32_t> waiters_ = 0;
};
inline constinit AsyncStream async_stream;

// The place in the stream of the event that is being handled: behind everything when it does not come from
// there.
Position event_position() QV_REQUIRES(app_mutex);

// Around the handling of the record in hand.
class HandlingRecord {
  public:
    explicit HandlingRecord(Position at) QV_REQUIRES(app_mutex);
    ~HandlingRecord();
};

}  // namespace quorvel
