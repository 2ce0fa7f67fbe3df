// What the library asks of the C library: counted, and made to fail at the call that a test names.
//
// The functions are defined in the test program and exported, so that the library calls them; they forward to
// the real ones. Only calls that come from the code of libquorvel are counted and fail.
#pragma once

#include <cstddef>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace quorvel::test {

enum class Call {
    Malloc,  // and calloc, realloc, strdup: whatever allocates
    ThreadCreate,
    ThreadJoin,
    MutexLock,
    MutexUnlock,
    Socket,
    Connect,
    Pipe,
    Select,
    Poll,
    Read,
    Write,
    Send,
    Receive,  // recv
    Close,
    Fcntl,
    Format,  // vasprintf, which allocates inside the C library
    kCount
};

namespace calls {

// The calls made by the library since the last reset().
size_t count(Call call);

// Forgets the counts, and everything that was ordered below.
void reset();

// Lets the nth call from now on fail with an error number, and the calls behind it too, `times` in all. Error
// 0 stands for what the function usually fails with.
void fail(Call call, size_t nth = 1, int error = 0, size_t times = 1);
inline constexpr size_t kForEver = static_cast<size_t>(-1);

// Whether the last order of fail() has let a call fail.
bool has_failed(Call call);

// Runs on the calling thread right before the nth call from now on, which is then made.
void before(Call call, std::function<void()> hook, size_t nth = 1);

// Answers the library's next call of poll or ppoll without asking the kernel: with these events, or with a
// time-out when there are none.
void answer_next_poll(short events);

// Stops the library's clock of whole seconds, time(), at this moment.
void stop_time(time_t now);

// The address lengths that the library has passed to connect.
std::vector<unsigned> connect_lengths();

// Sleeps of the library take no time from now on, and are kept, in seconds.
void skip_sleeps();
std::vector<unsigned> sleeps();

// Whether an address lies within the library.
bool is_library_code(const void* address);

}  // namespace calls
}  // namespace quorvel::test
