#include "common/Futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>

#include "common/KeepErrno.h"

namespace quorvel {
namespace {

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));

// Two words of the machine, as this call has always taken them; a timespec may be wider.
struct KernelTime {
    long seconds;
    long nanoseconds;
};

void call(std::atomic<uint32_t>& word, int operation, uint32_t value, const KernelTime* limit = nullptr) {
    const KeepErrno keep;
    syscall(SYS_futex, &word, operation | FUTEX_PRIVATE_FLAG, value, limit, nullptr, 0);
}

}  // namespace

void wait_while(std::atomic<uint32_t>& word, uint32_t value) {
    call(word, FUTEX_WAIT, value);
}

void wait_while(std::atomic<uint32_t>& word, uint32_t value, int32_t milliseconds) {
    const KernelTime limit = {milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
    call(word, FUTEX_WAIT, value, &limit);
}

void wake_one(std::atomic<uint32_t>& word) {
    call(word, FUTEX_WAKE, 1);
}

void wake_all(std::atomic<uint32_t>& word) {
    call(word, FUTEX_WAKE, INT_MAX);
}

}  // namespace quorvel
