// One request out, one record in.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "client/CM/src/NetCMClientInternal/Link.h"
#include "client/CM/src/NetCMClientInternal/Stream.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/KeepErrno.h"

using namespace quorvel;

namespace {

// What an exchange leaves behind that has ended before everything was read. Nothing does when the time is
// over: the link is lost then.
void note_missing_block(const Reading& reading, size_t len) QV_REQUIRES(app_mutex) {
    const KeepErrno keep;
    if (reading.end == ReadEnd::TimedOut)
        lose_link();
    else if (reading.may_still_come())
        sync_stream.owes_block(len - reading.got, reading.limit);
}

void note_missing_answer(const Reading& reading, const wire::Record& record) QV_REQUIRES(app_mutex) {
    const KeepErrno keep;
    if (reading.end == ReadEnd::TimedOut)
        lose_link();
    else if (reading.may_still_come())
        sync_stream.owes_answer(record, reading.got, reading.limit);
}

// Of a block on either socket.
Reading read_block(int fd, void* buf, size_t len) QV_REQUIRES(app_mutex) {
    if (async_stream.is(fd))
        return async_stream.read_block(buf, len);
    const Reading reading = read_whole(Reader::Block, fd, buf, len, Signals::Interrupt);
    if (fd == table().SyncSockFd)
        note_missing_block(reading, len);
    return reading;
}

// Whether there is something to skip for the receiver, whenever it comes. A server that has hung up may have
// written it before.
bool is_missing_of_async(int fd, const Reading& reading) {
    return async_stream.is(fd) && reading.end != ReadEnd::Done && reading.end != ReadEnd::Nothing;
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
    const int64_t written = write_request(fd, buf, len);
    if (written < 1) {
        QV_TRACE(5, "Error writing to the socket. Error = [%s]\n", strerror(errno));
        return NETCM_ERR_FAILURE;
    }
    // A short write counts as sent; the answer that does not come to it says the rest.
    QV_TRACE(2, "Successfully written %d byte on socket FD = %d \n", static_cast<int>(written), fd);
    return NETCM_SUCCESS;
}

// Reads from the process's sync socket whatever the caller passes: there is only one.
int32_t NetCMReadSocket(int, void* buf, uint32_t len) {
    const Reading reading = read_whole(Reader::Sync, table().SyncSockFd, buf, len, Signals::Interrupt);
    note_missing_block(reading, len);
    return reading.result;
}

int32_t NetCMReadSocketEx(int fd, void* buf, int len) {
    const auto length = static_cast<size_t>(std::max(len, 0));
    const Reading reading = read_block(fd, buf, length);
    if (is_missing_of_async(fd, reading))
        async_stream.skip(length - reading.got);
    return reading.result;
}

uint32_t NetCMReadResponse(int, uint32_t expectedCode, uint32_t rsp[10]) {
    if (rsp == nullptr)
        return NETCM_ERR_INVALID_PARAM;
    wire::Record record = {};
    const Reading reading =
        read_whole(Reader::Sync, table().SyncSockFd, &record, sizeof record, Signals::Interrupt);
    note_missing_answer(reading, record);
    if (reading.result < 1) {
        QV_TRACE(3, "Error reading response from CM. errno = %d \n", errno);
        return NETCM_ERR_FAILURE;
    }
    QV_TRACE(0, "Received response Event = %d \n", static_cast<int>(record.Code));
    if (record.Code != expectedCode) {
        QV_TRACE(3, "Unknown Event received. \n");
        return NETCM_ERR_FAILURE;
    }
    QV_TRACE(0, "Received Requested Response = %d \n", static_cast<int>(record.Code));
    memcpy(rsp, &record, sizeof record);
    return NETCM_SUCCESS;
}

uint32_t NetCMClientReadMoreData(int fd, void* dst, uint32_t len) {
    BlockBuffer block(len);
    Reading reading;
    if (block.data() != nullptr)
        reading = read_block(fd, block.data(), std::min<size_t>(len, INT_MAX));
    if (is_missing_of_async(fd, reading)) {
        // Of a block that has not begun it is not known whether it comes.
        if (reading.got == 0)
            async_stream.skip_block_that_may_follow();
        else
            async_stream.skip(len - reading.got);
    }
    if (reading.result < 1) {
        QV_TRACE(3, "Error reading response from CM. errno = %d \n", errno);
        return NETCM_ERR_FAILURE;
    }
    memcpy(dst, block.data(), len);
    return NETCM_SUCCESS;
}

}  // extern "C"
