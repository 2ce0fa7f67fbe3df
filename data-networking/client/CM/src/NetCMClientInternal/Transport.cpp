// One request out, one record in.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "client/CM/src/NetCMClientInternal/WriteOnce.h"
#include "client/CM/src/NetCMIntf/Table.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Wire.h"

using namespace quorvel;

namespace {

// How the two readers differ: in the patience they have and in what they trace.
struct SyncReader {
    static constexpr int kTimeoutMs = 60'000;
    static void polled(int result) { QV_TRACE(2, "POLL ret = %d,  \n", result); }
    static void timed_out() { QV_TRACE(2, "POLLing timeout  \n"); }
    static void failed() { QV_TRACE(3, "Polling unknown error. Error = [%s] \n", strerror(errno)); }
    static void read(int fd, int result) { QV_TRACE(0, "socket FD = [%d] Retval = [%d]\n", fd, result); }
};

struct BlockReader {
    static constexpr int kTimeoutMs = 10'000;
    static void polled(int result) { QV_TRACE(0, "POLL ret = %d,  \n", result); }
    static void timed_out() { QV_TRACE(3, "POLLing timeout  \n"); }
    static void failed() { QV_TRACE(3, "Polling unknown error \n"); }
    static void read(int fd, int result) { QV_TRACE(0, "sockfd %d retval %d\n", fd, result); }
};

template <class Reader>
int32_t read_until_full(int fd, char* buf, size_t len) {
    size_t total = 0;
    while (total < len) {
        const ssize_t got = ::read(fd, buf + total, len - total);
        Reader::read(fd, static_cast<int>(got));
        if (got <= 0)
            return static_cast<int32_t>(got);
        total += static_cast<size_t>(got);
    }
    return static_cast<int32_t>(total);
}

template <class Reader>
int32_t read_from(int fd, void* buf, size_t len) {
    if (buf == nullptr) {
        QV_TRACE(5, "NULL pointer variable passed\n");
        return -1;
    }
    if (fd < 1) {
        QV_TRACE(5, "Invalid socket FD [%d]\n", fd);
        return -1;
    }
    errno = 0;
    pollfd waiting = {.fd = fd, .events = POLLIN | POLLERR | POLLHUP, .revents = 0};
    const int ready = poll(&waiting, 1, Reader::kTimeoutMs);
    Reader::polled(ready);
    if (ready == 0) {
        Reader::timed_out();
        return 0;
    }
    if (ready < 0) {
        Reader::failed();
        return -1;
    }
    if (waiting.revents == POLLIN) {
        QV_TRACE(0, "POLLIN \n");
        return read_until_full<Reader>(fd, static_cast<char*>(buf), len);
    }
    if ((waiting.revents & POLLHUP) != 0) {
        QV_TRACE(2, "POLLHUP\n");
        return 0;
    }
    if ((waiting.revents & POLLERR) == 0)
        return 1;  // callers take it for a short read
    QV_TRACE(3, "POLLERR\n");
    return 0;
}

// Room for a block while it is read: on the stack where it is of the protocol's sizes, so that reading one
// cannot fail for want of memory.
class BlockBuffer {
  public:
    explicit BlockBuffer(size_t len) {
        if (len <= sizeof small_)
            data_ = small_;
        else
            data_ = large_ = static_cast<char*>(calloc(1, len));
    }
    ~BlockBuffer() { free(large_); }
    BlockBuffer(const BlockBuffer&) = delete;
    BlockBuffer& operator=(const BlockBuffer&) = delete;
    char* data() { return data_; }

  private:
    char small_[sizeof(wire::ProfileNameBlock)] = {};
    char* large_ = nullptr;
    char* data_;
};

}  // namespace

extern "C" {

uint32_t NetCMSendRequest(int fd, const void* buf, uint32_t len) {
    if (buf == nullptr) {
        QV_TRACE(5, "NULL pointer variable passed\n");
        return NETCM_ERR_INVALID_PARAM;
    }
    if (fd < 1) {
        QV_TRACE(4, "Socket FD = %d is invalid \n", fd);
        return NETCM_ERR_FAILURE;
    }
    const ssize_t written = write_once(fd, buf, len);
    if (written < 1) {
        QV_TRACE(5, "Error writing to the socket. Error = [%s]\n", strerror(errno));
        return NETCM_ERR_FAILURE;
    }
    // A short write counts as sent; the server answers what it can make of it.
    QV_TRACE(2, "Successfully written %d byte on socket FD = %d \n", static_cast<int>(written), fd);
    return NETCM_SUCCESS;
}

// Reads from the process's sync socket whatever the caller passes: there is only one.
int32_t NetCMReadSocket(int, void* buf, uint32_t len) {
    return read_from<SyncReader>(table().SyncSockFd, buf, len);
}

int32_t NetCMReadSocketEx(int fd, void* buf, int len) {
    return read_from<BlockReader>(fd, buf, static_cast<size_t>(std::max(len, 0)));
}

uint32_t NetCMReadResponse(int fd, uint32_t expectedCode, uint32_t rsp[10]) {
    if (rsp == nullptr)
        return NETCM_ERR_INVALID_PARAM;
    std::array<uint32_t, 10> record = {};
    if (NetCMReadSocket(fd, record.data(), sizeof record) < 1) {
        QV_TRACE(3, "Error reading response from CM. errno = %d \n", errno);
        return NETCM_ERR_FAILURE;
    }
    QV_TRACE(0, "Received response Event = %d \n", static_cast<int>(record[0]));
    if (record[0] != expectedCode) {
        QV_TRACE(3, "Unknown Event received. \n");
        return NETCM_ERR_FAILURE;
    }
    QV_TRACE(0, "Received Requested Response = %d \n", static_cast<int>(record[0]));
    std::copy(record.begin(), record.end(), rsp);
    return NETCM_SUCCESS;
}

uint32_t NetCMClientReadMoreData(int fd, void* dst, uint32_t len) {
    BlockBuffer block(len);
    if (block.data() == nullptr || NetCMReadSocketEx(fd, block.data(), static_cast<int>(len)) < 1) {
        QV_TRACE(3, "Error reading response from CM. errno = %d \n", errno);
        return NETCM_ERR_FAILURE;
    }
    memcpy(dst, block.data(), len);
    return NETCM_SUCCESS;
}

}  // extern "C"
