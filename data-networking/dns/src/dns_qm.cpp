// The query manager: who waits for which name.
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "common/CancelHold.h"
#include "common/Lock.h"
#include "common/Process.h"
#include "common/Trace.h"
#include "dns/src/InChild.h"
#include "dns/src/Queries.h"

using namespace quorvel;

namespace {

constexpr unsigned kIds = 10;

using Ids = std::array<uint32_t, kIds>;  // filled from the first; 0: empty

struct Slot {
    // Freed without the lock, once the callback has returned.
    std::atomic<uint16_t> in_use{0};
    DnsCallback callback = nullptr;
};

// A host name that is being resolved, and who waits for it.
struct InProgress {
    char* hostname;
    Ids ids;
    InProgress* next;
};

Mutex query_lock;
std::array<Slot, kIds> slots;  // of the ids 1 to 10
InProgress* head QV_GUARDED_BY(query_lock) = nullptr;

Slot& slot_of(uint32_t id) {
    return slots[id - 1];
}

void free_slot(uint32_t id) {
    slot_of(id).in_use.store(0, std::memory_order_release);
}

// The lowest free id, or 0.
uint32_t assign_id(DnsCallback callback) QV_REQUIRES(query_lock) {
    for (uint32_t id = 1; id <= kIds; ++id) {
        Slot& slot = slot_of(id);
        if (slot.in_use.load(std::memory_order_acquire) != 0)
            continue;
        slot.callback = callback;
        slot.in_use.store(1, std::memory_order_relaxed);
        return id;
    }
    return 0;
}

// The link that leads to the name's node; it leads to null when there is none.
InProgress** find(const char* hostname) QV_REQUIRES(query_lock) {
    InProgress** link = &head;
    while (*link != nullptr && strcmp((*link)->hostname, hostname) != 0)
        link = &(*link)->next;
    return link;
}

// A node that is full does not take the request, whose id stays in use and is never called back. There are as
// many places as ids, so the only ones to meet this are ids that a failed request has left behind.
void join(InProgress& node, uint32_t id) {
    for (uint32_t& place : node.ids)
        if (place == 0) {
            place = id;
            return;
        }
}

InProgress* new_node(const char* hostname) {
    auto* node = static_cast<InProgress*>(calloc(1, sizeof(InProgress)));
    char* copy = node != nullptr ? strdup(hostname) : nullptr;
    if (copy == nullptr) {
        free(node);
        return nullptr;
    }
    node->hostname = copy;
    return node;
}

void free_node(InProgress* node) {
    if (node != nullptr)
        free(node->hostname);
    free(node);
}

// Takes the name out of the list; null when it is not there.
InProgress* take_out(const char* hostname) QV_REQUIRES(query_lock) {
    InProgress** link = find(hostname);
    InProgress* node = *link;
    if (node != nullptr)
        *link = node->next;
    return node;
}

// Those who wait for the name, none when it is not in the list; they do not wait any more.
Ids take_waiting(const char* hostname) {
    InProgress* node = nullptr;
    {
        const Lock lock(query_lock);
        node = take_out(hostname);
    }
    if (node == nullptr)
        return {};
    const Ids ids = node->ids;
    free_node(node);
    return ids;
}

// Takes the node over when the request is the first for its name.
Entry enter(const char* hostname, InProgress*& node, DnsCallback callback) QV_REQUIRES(query_lock) {
    const uint32_t id = assign_id(callback);
    if (id == 0)
        return {};
    if (hostname == nullptr)
        return {Entry::As::Nameless, id};
    if (InProgress* running = *find(hostname); running != nullptr) {
        join(*running, id);
        return {Entry::As::Joined, id};
    }
    if (node == nullptr)
        return {Entry::As::Forgotten, id};
    node->ids[0] = id;
    node->next = head;
    head = std::exchange(node, nullptr);
    return {Entry::As::First, id};
}

template <class Value>
void store(Value* out, Value value) {
    if (out != nullptr)
        *out = value;
}

}  // namespace

// The lock may be another thread's, which is not in this process.
void quorvel::forget_queries_in_child() QV_NO_THREAD_SAFETY_ANALYSIS {
    query_lock.unlock();
    head = nullptr;
    for (Slot& slot : slots)
        slot.in_use.store(0, std::memory_order_relaxed);
}

Entry quorvel::enter_query(const char* hostname, unsigned int* dnsid, DnsCallback callback) {
    InProgress* node = hostname != nullptr ? new_node(hostname) : nullptr;
    Entry entry;
    {
        const Lock lock(query_lock);
        entry = enter(hostname, node, callback);
        if (entry.as != Entry::As::Refused)
            store(dnsid, entry.id);
    }
    free_node(node);
    return entry;
}

void quorvel::trace_entry(const char* hostname, const Entry& entry) {
    QV_TRACE(2, "assign dnsid= %d\n", static_cast<int>(entry.id));
    if (entry.as == Entry::As::Joined)
        QV_TRACE(2, "Query is in progress for the host : %s\n", hostname);
    else if (entry.as == Entry::As::Forgotten)
        QV_TRACE(4, "Failed to allocate memory for ptr\n");
    else if (entry.as == Entry::As::First)
        QV_TRACE(2, "Add to query progress list hostname[%s], dnsid[%d]\n", hostname,
                 static_cast<int>(entry.id));
}

void quorvel::drop_query(const char* hostname) {
    for (const uint32_t id : take_waiting(hostname))
        if (id != 0)
            free_slot(id);
}

void quorvel::trace_dropped(const char* hostname) {
    QV_TRACE(4, "Failed to resolve host [%s]  because thread creation failed\n", hostname);
}

extern "C" {

int UpdateQueryList(const char* hostname, unsigned int* dnsid, unsigned short* in_progress,
                    DnsCallback callback) {
    const CancelHold hold;
    const Entry entry = enter_query(hostname, dnsid, callback);
    if (entry.as == Entry::As::Refused)
        return 0;
    store<unsigned short>(in_progress, entry.as == Entry::As::Joined ? 1 : 0);
    trace_entry(hostname, entry);
    return 1;
}

void send_query_result(const char* hostname, struct hostent* result) {
    if (hostname == nullptr)
        return;
    const CancelHold hold;
    const uint32_t forks = forks_behind();
    const Ids ids = take_waiting(hostname);
    if (ids[0] != 0)
        QV_TRACE(2, "Delete from query progress list, hostname[%s]\n", hostname);
    for (const uint32_t id : ids) {
        // In the child of a fork that a callback has made nobody waits any more.
        if (id == 0 || forks != forks_behind())
            break;
        QV_TRACE(2, "Sending callback event Successfully for resolved host [%s] for dns id = %d\n", hostname,
                 static_cast<int>(id));
        if (const DnsCallback callback = slot_of(id).callback; callback != nullptr)
            callback(result, id);
        QV_TRACE(2, "Sent callback event  Successfully for resolved host [%s] for dns id = %d\n", hostname,
                 static_cast<int>(id));
        if (forks == forks_behind())
            free_slot(id);
    }
}

void AbortDnsQuery(const char* hostname) {
    if (hostname == nullptr)
        return;
    const CancelHold hold;
    trace_dropped(hostname);
    drop_query(hostname);
}

}  // extern "C"
