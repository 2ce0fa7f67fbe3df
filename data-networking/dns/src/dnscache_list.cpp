// The host cache: one list, from the host used last to the one used longest ago.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>

#include "common/Lock.h"
#include "common/Trace.h"
#include "dns/src/HostBuilder.h"
#include "dns/src/InChild.h"
#include "quorvel/NetDNS.h"

using namespace quorvel;

namespace {

constexpr int kCapacity = 10;
constexpr unsigned kNegativeSeconds = 300;
constexpr int kFound = 0;
constexpr int kNotFound = 3;

enum Kind : int32_t { kPositive = 0, kNegative = 1 };

struct Node {
    time_t expiry;
    int32_t kind;
    hostent* host;  // one block of its own: the structure and everything that it points to
    Node* next;
    int size;  // of the data of a positive entry
};

Mutex cache_lock;
Node* head QV_GUARDED_BY(cache_lock) = nullptr;

void free_node(Node* node) {
    free(node->host);
    free(node);
}

void push_front(Node* node) QV_REQUIRES(cache_lock) {
    node->next = head;
    head = node;
}

bool is_name(const char* name, const char* hostname) {
    return *name == *hostname && strcmp(name, hostname) == 0;
}

bool has_alias(const hostent& host, const char* hostname) {
    for (char* const* alias = host.h_aliases; *alias != nullptr; ++alias)
        if (is_name(*alias, hostname))
            return true;
    return false;
}

bool answers_to(const Node& node, const char* hostname) {
    return is_name(node.host->h_name, hostname) ||
           (node.kind == kPositive && has_alias(*node.host, hostname));
}

// What the host that was asked for last does not need stays out of line and out of the way, so that finding
// it is short enough to become a part of its callers: nothing in this file runs more often.
[[gnu::noinline]] void bring_to_front(Node** link) QV_REQUIRES(cache_lock) {
    QV_TRACE(2, "Bring to the front\n");
    QV_TRACE(2, "Moving recently queried host info to the front\n");
    Node* node = *link;
    *link = node->next;
    push_front(node);
}

[[gnu::noinline]] void delete_expired(Node** link, const char* hostname) QV_REQUIRES(cache_lock) {
    QV_TRACE(2, "Deleting expired host [%s]\n", hostname);
    Node* node = *link;
    *link = node->next;
    free_node(node);
    QV_TRACE(2, "Deleted host [%s]\n", hostname);
}

// The first match decides, also when it has run out.
inline Node* find(const char* hostname) QV_REQUIRES(cache_lock) {
    if (hostname == nullptr) [[unlikely]] {
        QV_TRACE(5, "Invalid hostname argument passed\n");
        return nullptr;
    }
    QV_TRACE(2, "Finding host[%s] in cache\n", hostname);
    Node** link = &head;
    while (*link != nullptr && !answers_to(**link, hostname))
        link = &(*link)->next;
    Node* node = *link;
    if (node == nullptr) [[unlikely]] {
        QV_TRACE(2, "[%s] host not found\n", hostname);
        return nullptr;
    }
    if (node->expiry <= time(nullptr)) [[unlikely]] {
        delete_expired(link, hostname);
        return nullptr;
    }
    QV_TRACE(2, "[%s] host found\n", hostname);
    if (node != head) [[unlikely]]
        bring_to_front(link);
    return node;
}

bool lay_copy(HostBuilder& copy, const hostent& from) {
    if (!copy.begin())
        return false;
    copy.clear_slots();
    if (!copy.name(from.h_name))
        return false;
    copy.set_kind(from.h_addrtype, from.h_length);
    for (char* const* alias = from.h_aliases; alias != nullptr && *alias != nullptr; ++alias)
        if (!copy.alias(*alias))
            return false;
    const size_t length = from.h_length > 0 ? static_cast<size_t>(from.h_length) : 0;
    for (char* const* address = from.h_addr_list; address != nullptr && *address != nullptr; ++address)
        if (!copy.address(*address, length))
            return false;
    return true;
}

// `size` receives the bytes that the copy takes.
hostent* copy_host(const hostent& from, char* buffer, int length, int& size) {
    HostBuilder copy(buffer, length);
    const bool fits = lay_copy(copy, from);
    size = copy.needed();
    if (fits)
        return copy.finish();
    QV_TRACE(4, "buffer not enough needed %d provided %d\n", size, length);
    return nullptr;
}

hostent* copy_out(const Node& node, char* buffer, int length) {
    int size = 0;
    if (buffer == nullptr || length < node.size) [[unlikely]]
        return copy_host(*node.host, buffer, length, size);
    return copy_block(node.host, static_cast<size_t>(node.size), buffer);
}

// At the start of a line of the processor's cache: a block that begins inside one takes longer to copy.
char* new_block(size_t size) {
    constexpr size_t kLineBytes = 64;
    void* block = nullptr;
    return posix_memalign(&block, kLineBytes, size) == 0 ? static_cast<char*>(block) : nullptr;
}

hostent* new_positive(const hostent& host, int size, int& copied) {
    char* block = size > 0 ? new_block(static_cast<size_t>(size)) : nullptr;
    if (block == nullptr && size > 0)
        return nullptr;
    hostent* copy = copy_host(host, block, size, copied);
    if (copy == nullptr)
        free(block);
    return copy;
}

hostent* new_negative(const char* hostname) {
    const size_t length = strlen(hostname) + 1;
    char* block = static_cast<char*>(malloc(sizeof(hostent) + length));
    if (block == nullptr)
        return nullptr;
    hostent host{};
    host.h_name = static_cast<char*>(memcpy(block + sizeof(hostent), hostname, length));
    return static_cast<hostent*>(memcpy(block, &host, sizeof host));
}

time_t expiry_after(unsigned seconds) {
    time_t expiry = 0;
    if (__builtin_add_overflow(time(nullptr), seconds, &expiry))
        return std::numeric_limits<time_t>::max();
    return expiry;
}

void make_room() QV_REQUIRES(cache_lock) {
    int count = 0;
    Node** last = &head;
    for (Node** link = &head; *link != nullptr; link = &(*link)->next) {
        ++count;
        last = link;
    }
    // Shown with the host that is about to come, which those who read the traces have always counted in.
    QV_TRACE(2, "Number of hosts = %d\n", count + 1);
    if (count < kCapacity)
        return;
    QV_TRACE(2, "Deleting last host\n");
    QV_TRACE(2, "Deleting last host [%s]\n", (*last)->host->h_name);
    free_node(*last);
    *last = nullptr;
}

void add(const char* hostname, const hostent* host, int size, time_t expiry) QV_REQUIRES(cache_lock) {
    QV_TRACE(2, "Adding host information to the list\n");
    auto* node = static_cast<Node*>(malloc(sizeof(Node)));
    if (node == nullptr)
        return;
    node->expiry = expiry;
    node->kind = host != nullptr ? kPositive : kNegative;
    node->size = 0;
    node->host = host != nullptr ? new_positive(*host, size, node->size) : new_negative(hostname);
    if (node->host == nullptr) {
        free(node);
        return;
    }
    push_front(node);
    QV_TRACE(2, "Host [%s] successfully added to the list\n", hostname);
}

}  // namespace

// The lock may be another thread's, which is not in this process, and the list half changed.
void quorvel::forget_cache_in_child() QV_NO_THREAD_SAFETY_ANALYSIS {
    cache_lock.unlock();
    head = nullptr;
}

extern "C" {

int get_dns_result_fron_cache(const char* hostname, char* buf, int buflen, struct hostent** result) {
    const Lock lock(cache_lock);
    const Node* node = find(hostname);
    if (node == nullptr)
        return kNotFound;
    hostent* copy = nullptr;
    if (node->kind == kNegative) [[unlikely]] {
        QV_TRACE(2, "%s host found in negative client cache\n", hostname);
    } else {
        copy = copy_out(*node, buf, buflen);
        if (copy != nullptr)
            QV_TRACE(2, "%s host found in positive client cache\n", hostname);
    }
    if (result != nullptr)
        *result = copy;
    return copy != nullptr || node->kind == kNegative ? kFound : kNotFound;
}

void update_dns_cache(const char* hostname, struct hostent* host, int size, unsigned int ttl) {
    const Lock lock(cache_lock);
    if (find(hostname) != nullptr || hostname == nullptr)
        return;
    // A host without a name could not be found again.
    if (host != nullptr && host->h_name == nullptr)
        return;
    const time_t expiry = expiry_after(host != nullptr ? ttl : kNegativeSeconds);
    if (host != nullptr) {
        QV_TRACE(2, "Caching positive response for host [%s]\n", hostname);
    } else {
        QV_TRACE(2, "Caching negative response for host [%s] ttlvalue [%d]\n", hostname,
                 static_cast<int>(kNegativeSeconds));
        QV_TRACE(2, "Timestamp stored [%d]\n", static_cast<int>(expiry));
    }
    make_room();
    add(hostname, host, size, expiry);
}

void clear_dns_cache(void) {
    QV_TRACE(2, "clearing all DNS Cache entries \n");
    const Lock lock(cache_lock);
    while (head != nullptr) {
        Node* node = head;
        head = node->next;
        free_node(node);
    }
}

}  // extern "C"
