#include "dns/src/InChild.h"

namespace quorvel {

void resolver_in_child() {
    forget_result_in_child();
    forget_server_in_child();
    forget_workers_in_child();
    forget_queries_in_child();
    forget_cache_in_child();
}

}  // namespace quorvel
