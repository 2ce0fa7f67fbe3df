// An entry of the host cache, and how one is made: nothing of it knows of the list.
#pragma once

#include <netdb.h>

#include <cstdint>
#include <cstring>
#include <ctime>

namespace quorvel {

inline constexpr unsigned kNegativeSeconds = 300;

enum Kind : int32_t { kPositive = 0, kNegative = 1 };

struct Node {
    time_t expiry;
    int32_t kind;
    hostent* host;  // one block of its own: the structure and everything that it points to
    Node* next;
    int size;  // of the data of a positive entry
};

void free_node(Node* node);

inline bool is_name(const char* name, const char* hostname) {
    return *name == *hostname && strcmp(name, hostname) == 0;
}

inline bool has_alias(const hostent& host, const char* hostname) {
    for (char* const* alias = host.h_aliases; *alias != nullptr; ++alias)
        if (is_name(*alias, hostname))
            return true;
    return false;
}

inline bool answers_to(const Node& node, const char* hostname) {
    return is_name(node.host->h_name, hostname) ||
           (node.kind == kPositive && has_alias(*node.host, hostname));
}

// A copy in a buffer; null when it does not fit. `size` receives the bytes that it takes, as far as it came.
hostent* copy_host(const hostent& from, char* buffer, int length, int& size);

// What is to go into the cache. Made before the lock is taken, which nobody shall wait for longer than for a
// place in the list.
struct Candidate {
    Node* node = nullptr;  // null when there was no memory, or the host does not fit
    time_t expiry = 0;
    int needed = 0;  // bytes of the copy of a host
};

// `host` is null for a name that is known not to exist.
Candidate new_candidate(const char* hostname, const hostent* host, int size, unsigned ttl);

}  // namespace quorvel
