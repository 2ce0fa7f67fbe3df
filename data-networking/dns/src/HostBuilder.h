// The one way a hostent gets into a caller's buffer.
//
// The structure is at the start of the buffer, behind it the array of aliases and the array of addresses,
// then the data: strings and addresses, packed in the order in which they are stored. The bytes that the
// result needs are counted as it is built, so that a caller whose buffer is too small learns how far the
// builder came.
#pragma once

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace quorvel {

inline constexpr size_t kHostSlots = 35;  // of each array, the null at the end included
inline constexpr size_t kAliasesAt = sizeof(hostent);
inline constexpr size_t kAddressesAt = kAliasesAt + kHostSlots * sizeof(char*);
inline constexpr size_t kHostDataAt = kAddressesAt + kHostSlots * sizeof(char*);
static_assert(sizeof(void*) != 4 || (kAliasesAt == 20 && kAddressesAt == 160 && kHostDataAt == 300));
static_assert(sizeof(void*) != 8 || (kAliasesAt == 32 && kAddressesAt == 312 && kHostDataAt == 592));

// Where a buffer that grows starts: 512 bytes on the handset, the same room for data everywhere.
inline constexpr int kFirstHostBuffer = static_cast<int>(kHostDataAt) + 212;

inline constexpr size_t kAddressBytes = 4;

class HostBuilder {
  public:
    HostBuilder(char* buffer, int length)
        : buffer_(buffer), room_(buffer != nullptr && length > 0 ? static_cast<size_t>(length) : 0) {}

    // The fixed part; like every step below it fails when the buffer is too small.
    bool begin() {
        if (!take(kAliasesAt))
            return false;
        host_.h_aliases = reinterpret_cast<char**>(buffer_ + kAliasesAt);
        if (!take(kAddressesAt - kAliasesAt))
            return false;
        host_.h_addr_list = reinterpret_cast<char**>(buffer_ + kAddressesAt);
        if (!take(kHostDataAt - kAddressesAt))
            return false;
        host_.h_addrtype = AF_INET;
        host_.h_length = kAddressBytes;
        return true;
    }

    bool name(const char* text) {
        host_.h_name = string(text);
        return host_.h_name != nullptr;
    }

    // What no slot is left for is dropped: a larger buffer would not make room for it.
    bool alias(const char* text) {
        if (aliases_ == kHostSlots - 1)
            return true;
        return keep(kAliasesAt, aliases_, string(text));
    }

    // A record may carry fewer bytes than an address has, but whoever reads one reads four: the rest is 0.
    bool address(const void* bytes, size_t length) {
        if (addresses_ == kHostSlots - 1)
            return true;
        char* stored = place(std::max(length, kAddressBytes));
        if (stored == nullptr)
            return false;
        memset(stored, 0, kAddressBytes);
        if (length == kAddressBytes) [[likely]]
            memcpy(stored, bytes, kAddressBytes);
        else
            memcpy(stored, bytes, length);
        return keep(kAddressesAt, addresses_, stored);
    }

    void set_kind(int addrtype, int length) {
        host_.h_addrtype = addrtype;
        host_.h_length = length;
    }

    // Leaves nothing in the slots that stay free, where a whole block is going to be copied.
    void clear_slots() { memset(buffer_ + kAliasesAt, 0, kHostDataAt - kAliasesAt); }

    bool has_name() const { return host_.h_name != nullptr; }

    // The bytes that the result needs, as far as it has been built, with the piece that did not fit.
    int needed() const { return static_cast<int>(std::min<size_t>(needed_, INT_MAX)); }

    hostent* finish() {
        end_arrays();
        return put_structure();
    }

    // Leaves in the buffer what there is of a host that cannot be completed: the structure, where it fits, as
    // far as the steps came, and arrays that end.
    [[gnu::cold, gnu::noinline]] void leave() {
        if (room_ >= kHostDataAt)
            end_arrays();
        if (room_ >= kAliasesAt)
            put_structure();
    }

  private:
    void end_arrays() {
        end(kAliasesAt, aliases_);
        end(kAddressesAt, addresses_);
    }

    // The caller's buffer need not be aligned for a pointer.
    hostent* put_structure() {
        memcpy(buffer_, &host_, sizeof host_);
        return reinterpret_cast<hostent*>(buffer_);
    }

    bool take(size_t bytes) {
        if (__builtin_add_overflow(needed_, bytes, &needed_))  // not reached: on 32 bits only
            needed_ = SIZE_MAX;                                // not reached: on 32 bits only
        return needed_ <= room_;
    }

    // Where the next piece of the data goes; null when it does not fit.
    char* place(size_t bytes) { return take(bytes) ? buffer_ + (needed_ - bytes) : nullptr; }

    // Out of line, where the compiler knows no bound of the length: with one it copies by a string
    // instruction, which takes longer than the rest of the work.
    [[gnu::noinline]] char* string(const char* text) {
        const size_t bytes = strlen(text) + 1;
        char* stored = place(bytes);
        return stored != nullptr ? static_cast<char*>(memcpy(stored, text, bytes)) : nullptr;
    }

    bool keep(size_t array, size_t& count, char* stored) {
        if (stored == nullptr)
            return false;
        memcpy(buffer_ + array + count++ * sizeof stored, &stored, sizeof stored);
        return true;
    }

    void end(size_t array, size_t count) { memset(buffer_ + array + count * kSlotBytes, 0, kSlotBytes); }

    static constexpr size_t kSlotBytes = sizeof(char*);

    char* buffer_;
    size_t room_;
    size_t needed_ = 0;
    size_t aliases_ = 0;
    size_t addresses_ = 0;
    hostent host_{};
};

// Copies a host that a builder has laid out, `size` bytes in one block, to a buffer that has room for it: the
// same bytes, with their pointers moved along. For the cache, which does nothing more often.
inline hostent* copy_block(const hostent* from, size_t size, char* buffer) {
    const char* source = reinterpret_cast<const char*>(from);
    const uintptr_t way = reinterpret_cast<uintptr_t>(buffer) - reinterpret_cast<uintptr_t>(source);
    // Read from where they are, and not from the copy: what has just been stored is slow to load again.
    const auto move = [=](size_t at) {
        uintptr_t pointer = 0;
        memcpy(&pointer, source + at, sizeof pointer);
        if (pointer == 0)
            return false;
        pointer += way;
        memcpy(buffer + at, &pointer, sizeof pointer);
        return true;
    };
    const auto move_all = [=](size_t at) {
        while (move(at))
            at += sizeof(char*);
    };
    const auto point = [=](size_t at, size_t to) {
        const char* pointer = buffer + to;
        memcpy(buffer + at, &pointer, sizeof pointer);
    };
    memcpy(buffer, from, size);
    move(offsetof(hostent, h_name));
    point(offsetof(hostent, h_aliases), kAliasesAt);
    point(offsetof(hostent, h_addr_list), kAddressesAt);
    move_all(kAliasesAt);
    move_all(kAddressesAt);
    return reinterpret_cast<hostent*>(buffer);
}

// The bytes that a name with one address and no alias needs.
inline size_t size_of_single(const char* name) {
    return kHostDataAt + strlen(name) + 1 + kAddressBytes;
}

// A name with one address and no alias; null when the buffer is too small.
inline hostent* lay_single(const char* name, in_addr_t address, char* buffer, int length) {
    HostBuilder host(buffer, length);
    if (host.begin() && host.name(name) && host.address(&address, kAddressBytes))
        return host.finish();
    host.leave();
    return nullptr;
}

}  // namespace quorvel
