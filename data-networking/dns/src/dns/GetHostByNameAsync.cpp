// A lookup in the background: accepted or refused at once.
#include <pthread.h>

#include <cerrno>

#include "common/CancelHold.h"
#include "common/Lock.h"
#include "common/Process.h"
#include "common/Trace.h"
#include "dns/src/InChild.h"
#include "dns/src/Queries.h"
#include "dns/src/dns/Lookup.h"
#include "dns/src/dns/Worker.h"

using namespace quorvel;

namespace {

constexpr int kMostWorkers = 10;

// Taken before the query manager's lock, and held while a request is set up.
Mutex worker_lock;
int workers QV_GUARDED_BY(worker_lock) = 0;

int start_detached(QueryRecord* record, pthread_t& thread) {
    pthread_attr_t attributes;
    int result = pthread_attr_init(&attributes);
    if (result != 0)    // not reached: the system never says so
        return result;  // not reached: the system never says so
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    result = pthread_create(&thread, &attributes, resolve_in_background, record);
    pthread_attr_destroy(&attributes);
    return result;
}

// What has become of a request, to be traced when the lock is free again: the sink may take its time, and may
// ask for a name itself.
struct Request {
    const char* hostname;
    Entry entry;
    Missing missing = Missing::Nothing;
    QueryRecord* record = nullptr;
    enum { NotTried, Running, TooMany, NoThread } thread = NotTried;
    int number = 0;  // of the thread, of the workers, of the error
};

void start_worker(Request& request) QV_REQUIRES(worker_lock) {
    if (workers >= kMostWorkers) {
        request.thread = Request::TooMany;
        request.number = workers;
        drop_query(request.hostname);
        return;
    }
    pthread_t thread{};
    const int error = start_detached(request.record, thread);
    if (error != 0) {
        request.thread = Request::NoThread;
        request.number = error;
        drop_query(request.hostname);
        return;
    }
    request.thread = Request::Running;
    request.number = static_cast<int>(thread);
    ++workers;
}

void set_up(Request& request, int profile_id, DnsCallback callback, unsigned int* dnsid) {
    const Lock lock(worker_lock);
    request.entry = enter_query(request.hostname, dnsid, callback);
    if (request.entry.as == Entry::As::Refused || request.entry.as == Entry::As::Joined)
        return;
    // Without a record the id and the name just entered stay, and later requests for the name join them.
    request.record = new_query_record(profile_id, request.hostname, request.missing);
    if (request.record != nullptr)
        start_worker(request);
}

void trace_missing(Missing missing) {
    if (missing == Missing::Record)
        QV_TRACE(4, "Failed to allocate memory for query_host\n");
    else if (missing == Missing::Name)
        QV_TRACE(4, "Failed to allocate memory for query_host->hostname\n");
}

// Traces what has become of the request, and lets its worker go. Returns whether it was accepted.
bool announce(Request& request) {
    trace_entry(request.hostname, request.entry);
    switch (request.thread) {  // not reached: for the compiler
        case Request::NotTried:
            trace_missing(request.missing);
            return request.entry.as == Entry::As::Joined;
        case Request::Running:
            let_go(request.record);
            QV_TRACE(2, "Thread created successfully, threadid [%d]\n", request.number);
            return true;
        case Request::TooMany:
            trace_dropped(request.hostname);
            QV_TRACE(4, "Failed to create thread, reached max threads count [%d]\n", request.number);
            break;
        case Request::NoThread:
            QV_TRACE(4, "Failed to create thread, errno [%d] \n", request.number);
            trace_dropped(request.hostname);
            break;
    }
    free_query_record(request.record);
    return false;
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
    const CancelHold hold;
    if (hostname == nullptr || callback == nullptr || dnsid == nullptr || profile_id <= 0) {
        QV_TRACE(5, "Invalid argument passed\n");
        return 0;
    }
    if (!is_acceptable(profile_id, hostname))
        return 0;
    Request request{.hostname = hostname, .entry = {}};
    set_up(request, profile_id, callback, dnsid);
    if (request.entry.as == Entry::As::Refused) {
        QV_TRACE(4, "Failed to update query list\n");
        return 0;
    }
    return announce(request) ? 1 : 0;
}
