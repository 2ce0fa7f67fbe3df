// The manners of the library in a process that is not its own.
//
// - fork: the child of a fork has one thread, and locks that others have held. There the library is as never
//   registered: its descriptors are closed, its locks free, and nothing of the parent's calls, lookups and
//   events goes on. Whoever forks inside one of our callbacks comes back, in the child, to frames that find a
//   fork behind them and leave everything as it is.
// - cancellation: held back inside the library (common/CancelHold.h).
// - unloading: the library stays where it is when somebody closes it (-z nodelete).
// - signals: our threads have the mask of whoever starts them; what a signal interrupts is said by the
// headers. No
//   SIGPIPE leaves the library.
#include <pthread.h>

#include "client/CM/src/NetCMClientInternal/Link.h"
#include "common/AppMutex.h"
#include "common/Exported.h"
#include "common/KeepErrno.h"
#include "common/LogFile.h"
#include "common/OwnDescriptors.h"
#include "common/Process.h"
#include "dns/src/InChild.h"

using namespace quorvel;

// What pthread_atfork hands on; where a compiler links around a library what has its own, that one is used.
extern "C" {
__attribute__((weak, visibility("hidden"))) void* __dso_handle = nullptr;
}

namespace {

void in_child() {
    const KeepErrno keep;
    fork_count.fetch_add(1, std::memory_order_relaxed);
    close_descriptors_in_child();
    app_mutex_in_child();
    log_file_in_child();
    link_in_child();
    resolver_in_child();
}

__attribute__((constructor)) void begin() {
    exported::find_places();
    pthread_atfork(nullptr, nullptr, in_child);
}

}  // namespace
