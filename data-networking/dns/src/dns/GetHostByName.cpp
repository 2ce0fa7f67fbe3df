// A lookup whose caller waits, into one buffer for all threads.
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "common/CancelHold.h"
#include "common/Lock.h"
#include "common/Trace.h"
#include "dns/src/HostBuilder.h"
#include "dns/src/InChild.h"
#include "dns/src/dns/Lookup.h"

using namespace quorvel;

namespace {

// Kept for the whole process: the last result points into it. Where it is can be read without the lock.
struct SharedBuffer {
    std::atomic<char*> bytes{nullptr};
    std::atomic<int> allocated{0};
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
    shared.bytes = bytes;
    shared.allocated = shared.size = size;
    return true;
}

bool clear(int size) QV_REQUIRES(lookup_lock) {
    if (!resize(size))
        return false;
    memset(shared.bytes, 0, static_cast<size_t>(size));
    return true;
}

// Whether the text is a part of the last result. The lock would be waited for as long as another thread's
// lookup takes, and that thread ends the result anyway.
bool is_in_buffer(const char* text) QV_NO_THREAD_SAFETY_ANALYSIS {
    const auto begin = reinterpret_cast<uintptr_t>(shared.bytes.load());
    const auto at = reinterpret_cast<uintptr_t>(text);
    return at >= begin && at - begin < static_cast<size_t>(shared.allocated.load());
}

// Without a buffer nothing is asked and nothing is traced. Once there is one it stays, which needs no lock.
bool has_buffer() QV_NO_THREAD_SAFETY_ANALYSIS {
    if (shared.bytes.load() != nullptr)
        return true;
    const Lock lock(lookup_lock);
    return resize(kFirstHostBuffer);
}

int find_route_of(int profile_id, const char* hostname, Route& route) {
    if (hostname != nullptr)
        return find_route(profile_id, hostname, route);
    QV_TRACE(5, "Invalid parameter passed  hostname\n");
    return kInvalid;
}

// All tries, each in a buffer of twice the size.
hostent* resolve_into_shared(const Route& route, const char* hostname) QV_REQUIRES(lookup_lock) {
    for (int size = kFirstHostBuffer; clear(size); size *= 2) {
        // The route is that of the first try, but each of them begins with the line of a request.
        if (size > kFirstHostBuffer)
            QV_TRACE(0, "Request to get hostname \n");
        hostent* host = nullptr;
        const int code = resolve(route, hostname, &host, shared.bytes, size);
        if (code != kBufferTooSmall || size > INT_MAX / 2)
            return code == kResolved ? host : nullptr;
    }
    return nullptr;
}

}  // namespace

// The lock may be another thread's, which is not in this process.
void quorvel::forget_result_in_child() QV_NO_THREAD_SAFETY_ANALYSIS {
    lookup_lock.unlock();
    shared.bytes = nullptr;
    shared.allocated = shared.size = 0;
}

// The connection manager is asked before the lookup holds its lock: a callback of the application, which
// holds the connection manager's mutex, may call this function too, and the two would wait for each other.
extern "C" struct hostent* NetDNSGetHostByName(int profile_id, const char* hostname) {
    const CancelHold hold;
    if (!has_buffer())
        return nullptr;
    // The last result ends with this call: a name that was taken from it is empty now, and its memory may
    // move.
    if (is_in_buffer(hostname))
        hostname = "";
    Route route;
    const bool found = find_route_of(profile_id, hostname, route) == kResolved;
    const Lock lock(lookup_lock);
    if (found)
        return resolve_into_shared(route, hostname);
    clear(kFirstHostBuffer);
    return nullptr;
}
