// A lookup whose caller waits, into one buffer for all threads.
#include <climits>
#include <cstdlib>
#include <cstring>

#include "common/Trace.h"
#include "dns/src/HostBuilder.h"
#include "dns/src/Lock.h"
#include "dns/src/dns/Lookup.h"

using namespace quorvel;

namespace {

// Kept for the whole process: the last result points into it.
struct SharedBuffer {
    char* bytes = nullptr;
    int size = 0;
};

Mutex lookup_lock;
SharedBuffer shared QV_GUARDED_BY(lookup_lock);

bool resize(int size) QV_REQUIRES(lookup_lock) {
    if (shared.size == size)
        return true;
    auto* bytes = static_cast<char*>(realloc(shared.bytes, static_cast<size_t>(size)));
    shared.size = bytes != nullptr ? size : 0;
    if (bytes != nullptr)
        shared.bytes = bytes;
    return bytes != nullptr;
}

int resolve_into_shared(const Route& route, const char* hostname, int size, hostent** result) {
    const Lock lock(lookup_lock);
    if (!resize(size))
        return kInvalid;
    memset(shared.bytes, 0, static_cast<size_t>(size));
    return resolve(route, hostname, result, shared.bytes, size);
}

}  // namespace

// The lock is not yet held while the connection manager is asked: a callback of the application, which holds
// the connection manager's mutex, may call this function too, and the two would wait for each other.
extern "C" struct hostent* NetDNSGetHostByName(int profile_id, const char* hostname) {
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
