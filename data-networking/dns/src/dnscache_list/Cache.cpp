// The host cache: one list, from the host used last to the one used longest ago.
#include <cstring>
#include <ctime>
#include <utility>

#include "common/CancelHold.h"
#include "common/Lock.h"
#include "common/Trace.h"
#include "dns/src/HostBuilder.h"
#include "dns/src/InChild.h"
#include "dns/src/dnscache_list/Entry.h"
#include "quorvel/NetDNS.h"

using namespace quorvel;

namespace {

constexpr int kCapacity = 10;
constexpr int kFound = 0;
constexpr int kNotFound = 3;

Mutex cache_lock;
Node* head QV_GUARDED_BY(cache_lock) = nullptr;

void push_front(Node* node) QV_REQUIRES(cache_lock) {
    node->next = head;
    head = node;
}

// What a search has met. It is traced when the lock is free again: the sink may take its time, may be where a
// thread is cancelled, and may ask for a name itself.
struct Met {
    Node* node = nullptr;     // the entry; its own only as long as the lock is held
    Node* expired = nullptr;  // taken out of the list
    bool moved = false;       // to the front
};

// The first match decides, also when it has run out.
Met find(const char* hostname) QV_REQUIRES(cache_lock) {
    Node** link = &head;
    while (*link != nullptr && !answers_to(**link, hostname))
        link = &(*link)->next;
    Node* node = *link;
    if (node == nullptr)
        return {};
    const bool valid = node->expiry > time(nullptr);
    if (valid && node == head)
        return {.node = node};
    *link = node->next;
    if (!valid)
        return {.expired = node};
    push_front(node);
    return {.node = node, .moved = true};
}

inline bool trace_begin(const char* hostname) {
    if (hostname == nullptr) [[unlikely]] {
        QV_TRACE(5, "Invalid hostname argument passed\n");
        return false;
    }
    QV_TRACE(2, "Finding host[%s] in cache\n", hostname);
    return true;
}

void trace_miss(const char* hostname, const Met& met) {
    if (met.expired == nullptr) {
        QV_TRACE(2, "[%s] host not found\n", hostname);
        return;
    }
    QV_TRACE(2, "Deleting expired host [%s]\n", hostname);
    free_node(met.expired);
    QV_TRACE(2, "Deleted host [%s]\n", hostname);
}

void trace_hit(const char* hostname, bool moved) {
    QV_TRACE(2, "[%s] host found\n", hostname);
    if (moved) {
        QV_TRACE(2, "Bring to the front\n");
        QV_TRACE(2, "Moving recently queried host info to the front\n");
    }
}

void trace_no_room(int needed, int provided) {
    QV_TRACE(4, "buffer not enough needed %d provided %d\n", needed, provided);
}

// What the host that was asked for last needs is short enough to become a part of its caller, and what the
// others need stays out of line: nothing in this file runs more often. Null where it is not that host's turn.
inline hostent* copy_front(const char* hostname, char* buffer, int length) QV_REQUIRES(cache_lock) {
    const Node* node = head;
    if (node == nullptr || !answers_to(*node, hostname) || node->kind != kPositive || buffer == nullptr ||
        length < node->size) [[unlikely]]
        return nullptr;
    hostent* copy = copy_block(node->host, static_cast<size_t>(node->size), buffer);
    // Looked at behind the copying: giving the lock back waits until the copy has reached memory, which it
    // does meanwhile.
    return node->expiry > time(nullptr) ? copy : nullptr;
}

// Any other answer.
struct Answer {
    Met met;
    bool positive = false;
    hostent* copy = nullptr;
    int needed = 0;  // bytes of the copy
};

Answer search(const char* hostname, char* buffer, int length) QV_REQUIRES(cache_lock) {
    Answer answer{.met = find(hostname)};
    const Node* node = answer.met.node;
    answer.positive = node != nullptr && node->kind == kPositive;
    if (answer.positive)
        answer.copy = copy_host(*node->host, buffer, length, answer.needed);
    return answer;
}

// Gives the result to return.
int tell(const char* hostname, const Answer& answer, int length, hostent** result) {
    if (answer.met.node == nullptr) {
        trace_miss(hostname, answer.met);
        return kNotFound;
    }
    trace_hit(hostname, answer.met.moved);
    if (result != nullptr)
        *result = answer.copy;
    if (!answer.positive) {
        QV_TRACE(2, "%s host found in negative client cache\n", hostname);
        return kFound;
    }
    if (answer.copy == nullptr) {
        trace_no_room(answer.needed, length);
        return kNotFound;
    }
    QV_TRACE(2, "%s host found in positive client cache\n", hostname);
    return kFound;
}

[[gnu::noinline]] int answer_otherwise(const char* hostname, char* buffer, int length, hostent** result)
    QV_RELEASE(cache_lock) {
    const Answer answer = search(hostname, buffer, length);
    cache_lock.unlock();
    return tell(hostname, answer, length, result);
}

// The host whose use is longest ago, when there is no place for another: taken out of the list. `count` is
// that of before.
Node* make_room(int& count) QV_REQUIRES(cache_lock) {
    count = 0;
    Node** last = &head;
    for (Node** link = &head; *link != nullptr; link = &(*link)->next) {
        ++count;
        last = link;
    }
    return count < kCapacity ? nullptr : std::exchange(*last, nullptr);
}

void trace_room(int count, Node* evicted) {
    // Shown with the host that is about to come, which those who read the traces have always counted in.
    QV_TRACE(2, "Number of hosts = %d\n", count + 1);
    if (evicted == nullptr)
        return;
    QV_TRACE(2, "Deleting last host\n");
    QV_TRACE(2, "Deleting last host [%s]\n", evicted->host->h_name);
    free_node(evicted);
}

void trace_candidate(const char* hostname, const hostent* host, const Candidate& made) {
    if (host != nullptr) {
        QV_TRACE(2, "Caching positive response for host [%s]\n", hostname);
        return;
    }
    QV_TRACE(2, "Caching negative response for host [%s] ttlvalue [%d]\n", hostname,
             static_cast<int>(kNegativeSeconds));
    QV_TRACE(2, "Timestamp stored [%d]\n", static_cast<int>(made.expiry));
}

void trace_added(const char* hostname, bool added, const Candidate& made, int size) {
    QV_TRACE(2, "Adding host information to the list\n");
    if (added)
        QV_TRACE(2, "Host [%s] successfully added to the list\n", hostname);
    else if (made.needed > 0)
        trace_no_room(made.needed, size);
}

}  // namespace

// The lock may be another thread's, which is not in this process, and the list half changed.
void quorvel::forget_cache_in_child() QV_NO_THREAD_SAFETY_ANALYSIS {
    cache_lock.unlock();
    head = nullptr;
}

extern "C" {

int get_dns_result_fron_cache(const char* hostname, char* buf, int buflen, struct hostent** result) {
    if (!trace_begin(hostname))
        return kNotFound;
    cache_lock.lock();
    hostent* copy = copy_front(hostname, buf, buflen);
    if (copy == nullptr) [[unlikely]]
        return answer_otherwise(hostname, buf, buflen, result);
    cache_lock.unlock();
    if (result != nullptr)
        *result = copy;
    QV_TRACE(2, "[%s] host found\n", hostname);
    QV_TRACE(2, "%s host found in positive client cache\n", hostname);
    return kFound;
}

void update_dns_cache(const char* hostname, struct hostent* host, int size, unsigned int ttl) {
    const CancelHold hold;
    if (!trace_begin(hostname))
        return;
    // A host without a name could not be found again.
    const bool can_be_found = host == nullptr || host->h_name != nullptr;
    Candidate made = can_be_found ? new_candidate(hostname, host, size, ttl) : Candidate{};
    Node* const node = made.node;
    Node* evicted = nullptr;
    int count = 0;
    Met met;
    {
        const Lock lock(cache_lock);
        met = find(hostname);
        if (met.node == nullptr && can_be_found) {
            evicted = make_room(count);
            if (node != nullptr)
                push_front(node);
        }
    }
    if (met.node != nullptr) {
        trace_hit(hostname, met.moved);
        if (node != nullptr)
            free_node(node);
        return;
    }
    trace_miss(hostname, met);
    if (!can_be_found)
        return;
    trace_candidate(hostname, host, made);
    trace_room(count, evicted);
    trace_added(hostname, node != nullptr, made, size);
}

void clear_dns_cache(void) {
    const CancelHold hold;
    QV_TRACE(2, "clearing all DNS Cache entries \n");
    Node* node = nullptr;
    {
        const Lock lock(cache_lock);
        node = std::exchange(head, nullptr);
    }
    while (node != nullptr) {
        Node* next = node->next;
        free_node(node);
        node = next;
    }
}

}  // extern "C"
