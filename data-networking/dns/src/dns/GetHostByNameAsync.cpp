// A lookup in the background: accepted or refused at once.
#include <pthread.h>

#include <cerrno>

#include "common/Lock.h"
#include "common/Process.h"
#include "common/Trace.h"
#include "dns/src/InChild.h"
#include "dns/src/dns/Lookup.h"
#include "dns/src/dns/Worker.h"

using namespace quorvel;

namespace {

constexpr int kMostWorkers = 10;

// Ten stacks of this size stay in the C library's cache, ten of the default size do not: each worker would
// then pay for mapping its own anew. It leaves an application's callback room to work in.
constexpr size_t kWorkerStack = 1024 * 1024;

// Taken before the query manager's lock, and held while a request is set up.
Mutex worker_lock;
int workers QV_GUARDED_BY(worker_lock) = 0;

int start_detached(QueryRecord* record, pthread_t& thread) {
    pthread_attr_t attributes;
    int result = pthread_attr_init(&attributes);
    if (result != 0)
        return result;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, kWorkerStack);
    result = pthread_create(&thread, &attributes, resolve_in_background, record);
    pthread_attr_destroy(&attributes);
    return result;
}

int give_up(QueryRecord* record) {
    AbortDnsQuery(record->hostname);
    free_query_record(record);
    return 0;
}

int start_worker(QueryRecord* record) QV_REQUIRES(worker_lock) {
    if (workers >= kMostWorkers) {
        give_up(record);
        QV_TRACE(4, "Failed to create thread, reached max threads count [%d]\n", workers);
        return 0;
    }
    pthread_t thread{};
    const int result = start_detached(record, thread);
    if (result != 0) {
        QV_TRACE(4, "Failed to create thread, errno [%d] \n", result);
        return give_up(record);
    }
    QV_TRACE(2, "Thread created successfully, threadid [%d]\n", static_cast<int>(thread));
    ++workers;
    return 1;
}

}  // namespace

void quorvel::worker_has_ended(uint32_t forks) {
    const Lock lock(worker_lock);
    if (forks == forks_behind())
        --workers;
}

// The lock may be another thread's, which is not in this process.
void quorvel::forget_workers_in_child() QV_NO_THREAD_SAFETY_ANALYSIS {
    worker_lock.unlock();
    workers = 0;
}

extern "C" int NetDNSGetHostByNameAsync(int profile_id, const char* hostname, DnsCallback callback,
                                        unsigned int* dnsid) {
    if (hostname == nullptr || callback == nullptr || dnsid == nullptr || profile_id <= 0) {
        QV_TRACE(5, "Invalid argument passed\n");
        return 0;
    }
    if (!is_acceptable(profile_id, hostname))
        return 0;
    const Lock lock(worker_lock);
    unsigned short in_progress = 0;
    if (UpdateQueryList(hostname, dnsid, &in_progress, callback) == 0) {
        QV_TRACE(4, "Failed to update query list\n");
        return 0;
    }
    if (in_progress != 0)
        return 1;
    QueryRecord* record = new_query_record(profile_id, hostname);
    if (record == nullptr)
        return 0;  // the id and the name just entered stay, and later requests for the name join them
    return start_worker(record);
}
