#include "dns/src/InChild.h"

#include <atomic>

#include "common/KeepErrno.h"
#include "dns/src/resolver/OpenSockets.h"

namespace quorvel {
namespace {

std::atomic<uint32_t> forks{0};

}  // namespace

uint32_t forks_behind() {
    return forks.load(std::memory_order_relaxed);
}

void resolver_in_child() {
    const KeepErrno keep;
    forks.fetch_add(1, std::memory_order_relaxed);
    close_sockets_in_child();
    forget_result_in_child();
    forget_server_in_child();
    forget_workers_in_child();
    forget_queries_in_child();
    forget_cache_in_child();
}

}  // namespace quorvel
