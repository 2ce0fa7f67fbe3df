// Where the process has the data that the library exports.
#include <dlfcn.h>

#include <cstdint>

#include "common/Exported.h"

// The linker's: the library's first byte, and the one behind its last.
extern "C" {
extern const char __ehdr_start __attribute__((visibility("hidden")));
extern const char _end __attribute__((visibility("hidden")));
}

namespace quorvel::exported {
namespace {

constexpr char kPublic[] = "QUORVEL_4.0";
constexpr char kPrivate[] = "QUORVEL_PRIVATE_4.0";

uintptr_t number(const void* address) {
    return reinterpret_cast<uintptr_t>(address);
}

// In the library itself, as in nearly every process.
bool is_here(const void* place) {
    const uintptr_t begin = number(&__ehdr_start);
    return number(place) - begin < number(&_end) - begin;
}

// A look-up by version passes over what has none. The dynamic linker's own look-up does so only for others'
// versions.
template <class T>
void find(T*& place, const char* name, const char* version) {
    if (is_here(place))
        return;
    void* const ours = dlvsym(RTLD_DEFAULT, name, version);
    if (ours != nullptr)  // not reached: the system never says so
        place = static_cast<T*>(ours);
}

}  // namespace

void find_places() {
    find(app_mutex, "NetCMAppMutex", kPublic);
    find(app_info, "g_NetCMClientAppInfo", kPublic);
    find(call_act_time, "ps_call_act_time", kPublic);
    find(call_deact_time, "ps_call_deact_time", kPublic);
    find(control_pipe, "pipe_fds", kPrivate);
    find(pending_event_record, "PendingEventRecord", kPrivate);
    find(log_file, "logfile", kPublic);
    find(dns_debug, "_dns_debug", kPublic);
}

}  // namespace quorvel::exported
