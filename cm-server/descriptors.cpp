#include "descriptors.h"

#include <sys/resource.h>

#include <algorithm>

#include "log.h"

namespace quorvel::cm {
namespace {

// The server's own: streams, the loop, signals, its sockets, the kernel's news, the store, and operators.
constexpr size_t kOwn = 48;
// Connections that have not registered yet, besides two for each client.
constexpr size_t kUnregistered = 32;
constexpr size_t kFewest = kOwn + kUnregistered + 2;

// What the process may have from here on.
size_t raised_limit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return kFewest;  // not reached: the system never says so
    rlimit raised = limit;
    raised.rlim_cur = limit.rlim_max;
    const bool done = setrlimit(RLIMIT_NOFILE, &raised) == 0;
    return static_cast<size_t>(done ? raised.rlim_cur : limit.rlim_cur);
}

}  // namespace

Room make_room(size_t clients) {
    const size_t limit = raised_limit();
    const size_t needed = kOwn + kUnregistered + 2 * clients;
    if (needed <= limit)
        return {limit - kOwn, clients};
    const size_t usable = std::max(limit, kFewest);
    const size_t served = (usable - kOwn - kUnregistered) / 2;
    log::warning(clients, " clients need ", needed, " file descriptors, and the hard limit is ", limit,
                 ": only ", served, " can be served (ulimit -Hn, or LimitNOFILE= of the service, raises it)");
    return {usable - kOwn, served};
}

}  // namespace quorvel::cm
