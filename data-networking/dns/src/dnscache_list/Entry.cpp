#include "dns/src/dnscache_list/Entry.h"

#include <cstdlib>
#include <limits>

#include "dns/src/HostBuilder.h"

namespace quorvel {
namespace {

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
    if (__builtin_add_overflow(time(nullptr), seconds, &expiry))  // not reached: on 32 bits only
        return std::numeric_limits<time_t>::max();                // not reached: on 32 bits only
    return expiry;
}

}  // namespace

void free_node(Node* node) {
    free(node->host);
    free(node);
}

hostent* copy_host(const hostent& from, char* buffer, int length, int& size) {
    HostBuilder copy(buffer, length);
    const bool fits = lay_copy(copy, from);
    size = copy.needed();
    return fits ? copy.finish() : nullptr;
}

Candidate new_candidate(const char* hostname, const hostent* host, int size, unsigned ttl) {
    Candidate made{.expiry = expiry_after(host != nullptr ? ttl : kNegativeSeconds)};
    auto* node = static_cast<Node*>(malloc(sizeof(Node)));
    if (node == nullptr)
        return made;
    hostent* data = host != nullptr ? new_positive(*host, size, made.needed) : new_negative(hostname);
    if (data == nullptr) {
        free(node);
        return made;
    }
    *node = {made.expiry, host != nullptr ? kPositive : kNegative, data, nullptr, made.needed};
    made.node = node;
    return made;
}

}  // namespace quorvel
