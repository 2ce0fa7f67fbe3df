// A lookup whose caller waits, into one buffer for all threads.
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "common/Lock.h"
#include "common/Trace.h"
#include "dns/src/HostBuilder.h"
#include "dns/src/InChild.h"
#include "dns/src/dns/Lookup.h"

using namespace quorvel;

namespace {

// Kept for the whole process: the last result points into it.
struct SharedBuffer {
    char* bytes = nullptr;
    int allocated = 0;
    int size = 0;  // 0 when it could not be made as large as it had to be
};

Mutex lookup_lock;
SharedBuffer shared QV_GUARDED_BY(lookup_lock);

bool resize(int size) QV_REQUIRES(lookup_lock) {
    if (shared.size == size)
        return true;
    shared.size = 0;
    auto* bytes = static_cast<char*>(realloc(shared.bytes, static_cast<size_t>(size)));
    if (bytes == nullptr)
        return false;
    shared = {bytes, size, size};
    return true;
}

bool clear(int size) QV_REQUIRES(lookup_lock) {
    if (!resize(size))
        return false;
    memset(shared.bytes, 0, static_cast<size_t>(size));
    return true;
}

bool is_in_buffer(const char* text) QV_REQUIRES(lookup_lock) {
    const auto begin = reinterpret_cast<uintptr_t>(shared.bytes);
    const auto at = reinterpret_cast<uintptr_t>(text);
    return at >= begin && at - begin < static_cast<size_t>(shared.allocated);
}

// The last result ends here, whatever becomes of this call. A name that was taken from it is empty now, and
// its memory may have moved.
bool forget_last_result(const char*& hostname) {
    const Lock lock(lookup_lock);
    if (is_in_buffer(hostname))
        hostname = "";
    return clear(kFirstHostBuffer);
}

int resolve_into_shared(const Route& route, const char* hostname, int size, hostent** result) {
    const Lock lock(lookup_lock);
    return clear(size) ? resolve(route, hostname, result, shared.bytes, size) : kInvalid;
}

}  // namespace

// The lock may be another thread's, which is not in this process.
void quorvel::forget_result_in_child() QV_NO_THREAD_SAFETY_ANALYSIS {
    lookup_lock.unlock();
    shared = {};
}

// The lock is not yet held while the connection manager is asked: a callback of the application, which holds
// the connection manager's mutex, may call this function too, and the two would wait for each other.
extern "C" struct hostent* NetDNSGetHostByName(int profile_id, const char* hostname) {
    if (!forget_last_result(hostname))
        return nullptr;
    if (hostname == nullptr) {
        QV_TRACE(5, "Invalid parameter passed  hostname\n");
        return nullptr;
    }
    for (int size = kFirstHostBuffer;; size *= 2) {
        Route route;
        if (find_route(profile_id, hostname, route) != kResolved)
            return nullptr;
        hostent* host = nullptr;
        const int code = resolve_into_shared(route, hostname, size, &host);
        if (code != kBufferTooSmall)
            return code == kResolved ? host : nullptr;
        if (size > INT_MAX / 2)
            return nullptr;
    }
}
