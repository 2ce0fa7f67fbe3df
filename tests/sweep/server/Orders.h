// What a test orders of the server's calls, in memory that both processes see.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace quorvel::sweep {

inline constexpr char kOrdersPath[] = "/tmp/server-faults";

enum class ServerCall : uint32_t {
    Memory,
    Accept,
    Read,     // of sockets and files: read, readv, recv
    Write,    // write, writev, send
    Netlink,  // recvmsg, sendto: what the link state comes from
    Open,
    SqliteIo,
    SqliteFull,
    SqliteBusy,
    kCount
};

struct Orders {
    std::atomic<uint32_t> call;  // a ServerCall
    std::atomic<uint32_t> from;  // the number of the call that fails first; 0: none
    std::atomic<uint32_t> times;
    std::atomic<int32_t> error;
    std::atomic<uint32_t> made;  // calls of this kind since the order
    std::atomic<uint32_t> failures;
};
static_assert(std::atomic<uint32_t>::is_always_lock_free);

}  // namespace quorvel::sweep
