#include "common/Pause.h"

#include <unistd.h>

#include <cerrno>

#include "common/Clock.h"
#include "common/KeepErrno.h"

namespace quorvel {
namespace {

// Sleeps until the deadline, whatever comes.
void sleep_out(const Deadline& deadline) {
    for (int32_t left = deadline.left_ms(); left > 0; left = deadline.left_ms()) {
        const timespec rest = {left / 1000, left % 1000 * 1'000'000L};
        nanosleep(&rest, nullptr);
    }
}

}  // namespace

void pause_for(unsigned seconds) {
    const KeepErrno keep;
    const Deadline deadline = Deadline::in(static_cast<int32_t>(seconds) * 1000);
    errno = 0;
    // What is left of an interrupted sleep would come back in whole seconds, rounded down.
    sleep(seconds);
    if (errno == EINTR)
        sleep_out(deadline);
}

}  // namespace quorvel
