#include "dns/src/dns/Worker.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "common/CancelHold.h"
#include "common/Process.h"
#include "common/Trace.h"
#include "dns/src/HostBuilder.h"
#include "dns/src/InChild.h"
#include "dns/src/NetDNSPrivate.h"

namespace quorvel {
namespace {

// Twice the size; without the memory for it the old buffer stays, to be freed, and the size is 0.
void enlarge(char*& buffer, int& size) {
    const int wanted = size <= INT_MAX / 2 ? size * 2 : 0;
    char* larger = wanted > 0 ? static_cast<char*>(realloc(buffer, static_cast<size_t>(wanted))) : nullptr;
    size = larger != nullptr ? wanted : 0;
    if (larger != nullptr)
        buffer = larger;
}

// The code of the last try; the buffer grows until the host fits or memory has run out.
int look_up(const QueryRecord& query, char*& buffer, hostent*& host) {
    int size = kFirstHostBuffer;
    for (;;) {
        QV_TRACE(2, "doing ps_gethostbyname_r query for hostname %s \n", query.hostname);
        const int code = ps_gethostbyname_r(query.profile_id, query.hostname, &host, buffer, size);
        if (code != kBufferTooSmall)
            return code;
        QV_TRACE(2, "reallocated buffer for hostname %s\n", query.hostname);
        enlarge(buffer, size);
        if (size == 0)
            return code;
    }
}

void deliver(const QueryRecord& query, char*& buffer) {
    hostent* host = nullptr;
    const int code = look_up(query, buffer, host);
    if (code == kResolved) {
        QV_TRACE(2, "Successfully resolved host [%s]\n", query.hostname);
        send_query_result(query.hostname, host);
        QV_TRACE(2, "Going to free resolved host [%s]\n", query.hostname);
        return;
    }
    if (code != kBufferTooSmall)
        QV_TRACE(4, "Failed to resolve host [%s]\n", query.hostname);
    send_query_result(query.hostname, nullptr);
}

void wait_until_let_go(QueryRecord& query) {
    const Lock lock(query.held);
}

void run(const QueryRecord& query) {
    auto* buffer = static_cast<char*>(malloc(kFirstHostBuffer));
    if (buffer == nullptr) {
        send_query_result(query.hostname, nullptr);
        return;
    }
    deliver(query, buffer);
    free(buffer);
}

}  // namespace

// The lock of a new record is held, and not by the thread that will give it back as far as the compiler sees.
QueryRecord* new_query_record(int profile_id, const char* hostname,
                              Missing& missing) QV_NO_THREAD_SAFETY_ANALYSIS {
    missing = Missing::Record;
    auto* record = static_cast<QueryRecord*>(calloc(1, sizeof(QueryRecord)));
    if (record == nullptr)
        return nullptr;
    record->profile_id = profile_id;
    record->hostname = strdup(hostname);
    if (record->hostname == nullptr) {
        missing = Missing::Name;
        free(record);
        return nullptr;
    }
    missing = Missing::Nothing;
    record->held.lock();
    return record;
}

void let_go(QueryRecord* record) QV_NO_THREAD_SAFETY_ANALYSIS {
    record->held.unlock();
}

void free_query_record(QueryRecord* record) {
    free(record->hostname);
    free(record);
}

void* resolve_in_background(void* record) {
    const CancelHold hold;
    const uint32_t forks = forks_behind();
    if (record != nullptr) {
        auto* query = static_cast<QueryRecord*>(record);
        wait_until_let_go(*query);
        run(*query);
        free_query_record(query);
    }
    worker_has_ended(forks);
    return nullptr;
}

}  // namespace quorvel
