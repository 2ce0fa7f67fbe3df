// Reading whole things from a socket within a limit of time.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>

#include "common/Clock.h"

namespace quorvel {

// How a read has ended.
enum class ReadEnd {
    Done,
    TimedOut,
    Broken,   // the wait was interrupted, or failed
    Odd,      // the wait has told of something else: nothing was read
    Closed,   // the peer has hung up
    Failed,   // the read itself
    Nothing,  // there was nothing to read from or to
};

struct Reading {
    int32_t result = -1;  // as the readers give it to their callers
    ReadEnd end = ReadEnd::Nothing;
    size_t got = 0;  // bytes
    Deadline limit = Deadline::over();

    // What is missing may come yet.
    bool may_still_come() const {
        return end == ReadEnd::Broken || end == ReadEnd::Odd || end == ReadEnd::Failed;
    }
};

// How the two readers differ: in the patience they have and in what they trace.
enum class Reader { Sync, Block };

inline constexpr int32_t kSyncLimitMs = 60'000;
inline constexpr int32_t kBlockLimitMs = 10'000;

// Whether signals may interrupt a wait.
enum class Signals { Interrupt, Held };

// What reads behind a wait that has found something: as `read`.
using ReadSome = ssize_t (*)(int fd, void* buf, size_t len);

Reading read_whole(Reader reader, int fd, void* buf, size_t len, Signals signals,
                   ReadSome read_some = ::read);

// Waits until there is something to read, untraced: the result of poll.
int wait_to_read(int fd, int32_t milliseconds, Signals signals, short& events);

// Writes everything, as one write where the socket has room, and otherwise within a minute; a signal ends it.
// Returns the bytes written, or -1 with errno set when there are none. A descriptor that does not block is
// not waited for.
int64_t write_whole(int fd, const void* buf, size_t len);

}  // namespace quorvel
