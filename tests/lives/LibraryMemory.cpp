// Which blocks the library has. The sanitizers have a free of their own, and the address sanitizer looks for
// what is left in its own way: with them, nothing is counted.
#include <dlfcn.h>

#include <atomic>
#include <cstdlib>

#include "Remains.h"
#include "support/LibraryCalls.h"

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)

namespace quorvel::lives {

size_t blocks_of_library() {
    return 0;
}

void forget_blocks_of_library() {}

}  // namespace quorvel::lives

#else

namespace {

constinit std::atomic<size_t> freed{0};

using Free = void (*)(void*);

// Without an initialised static, since the first blocks of the process are freed through here.
Free real_free() {
    static Free real;
    Free found = __atomic_load_n(&real, __ATOMIC_RELAXED);
    if (found == nullptr) {
        found = reinterpret_cast<Free>(dlsym(RTLD_NEXT, "free"));
        __atomic_store_n(&real, found, __ATOMIC_RELAXED);
    }
    return found;
}

}  // namespace

namespace quorvel::lives {

size_t blocks_of_library() {
    return test::calls::count(test::Call::Malloc) - freed;
}

void forget_blocks_of_library() {
    freed = 0;
}

}  // namespace quorvel::lives

extern "C" __attribute__((visibility("default"))) void free(void* block) noexcept {
    if (block != nullptr && quorvel::test::calls::is_library_code(__builtin_return_address(0)))
        ++freed;
    real_free()(block);
}

#endif
