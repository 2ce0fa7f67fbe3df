// Tunnel data from the server.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "client/CM/src/NetCMClientCore/Delivery.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Exported.h"

using namespace quorvel;

namespace {

// The data behind a tunnel event, for the time of its delivery.
class TunnelPayload {
  public:
    explicit TunnelPayload(uint32_t length) : length_(length) {
        // Never of size 0, so that null always means: no memory. What cannot be read in one piece cannot be
        // had. Zeros, should less arrive than was announced: callbacks never see what the heap held before.
        if (length <= INT_MAX)
            data_ = calloc(1, length != 0 ? length : 1);
    }
    ~TunnelPayload() { free(data_); }
    TunnelPayload(const TunnelPayload&) = delete;
    TunnelPayload& operator=(const TunnelPayload&) = delete;

    bool allocated() const { return data_ != nullptr; }
    // What there is no memory for goes by, whenever it comes: it is no record.
    void skip() const QV_REQUIRES(app_mutex) { async_stream.skip(length_); }
    // The bytes read, 0 when the server has closed, -1 on an error. No data cost no look at the socket.
    int32_t read() QV_REQUIRES(app_mutex) {
        if (length_ == 0)
            return 1;
        return NetCMReadSocketEx(load(table().AsyncSockFd), data_, static_cast<int>(length_));
    }
    NetCMTunnelData record(uint32_t request_id) const { return {-1, request_id, length_, data_}; }

  private:
    uint32_t length_;
    void* data_ = nullptr;
};

// Who waits for the answer of that id, or -1. A free entry waits for none, whatever id the server names.
int32_t requester_of(uint32_t id) {
    const Lock lock(table_lock);
    for (const NetCMTunnelReq& request : exported::app_info->TunnelReq)
        if (request.ThreadId != -1 && static_cast<uint32_t>(request.RequestId) == id)
            return request.ThreadId;
    return -1;
}

void free_request(int32_t thread_id, uint32_t id) {
    const Lock lock(table_lock);
    for (NetCMTunnelReq& request : exported::app_info->TunnelReq) {  // not reached: checked before
        if (request.ThreadId != thread_id || static_cast<uint32_t>(request.RequestId) != id)
            continue;
        request = {-1, -1};
        return;
    }
}

}  // namespace

extern "C" {

uint32_t NetCMClientProcesTunnelRsp(const uint32_t* event) {
    if (is_null_record(event))
        return NETCM_ERR_INVALID_PARAM;
    const wire::Record response = as_record(event);
    TunnelPayload payload(response.Word2);
    if (!payload.allocated()) {
        payload.skip();
        QV_TRACE(4, "Memory can't be allocated for data.Data\n");
        return NETCM_ERR_FAILURE;
    }
    QV_TRACE(0, "Tunnel data length = %d\n", static_cast<int>(response.Word2));
    const int32_t received = payload.read();
    if (received < 0)
        QV_TRACE(3, "Error reading response from CM. Error = [%s] \n", strerror(errno));
    if (received == 0)
        QV_TRACE(3, "PANIC!!!  CM connection closed\n");
    if (received <= 0)
        return NETCM_ERR_FAILURE;
    QV_TRACE(0, "Received tunnel data. Tunnel data length = %d\n", static_cast<int>(response.Word2));
    const int32_t requester = requester_of(response.CallId);
    if (requester == -1)
        return NETCM_SUCCESS;
    QV_TRACE(0, "Getting calling thread index.\n");
    NetCMTunnelData data = payload.record(response.CallId);
    tell_requester(requester, {NETCM_EVENT_TUNNEL_RSP, -1, 0, &data});
    free_request(requester, response.CallId);
    return NETCM_SUCCESS;
}

uint32_t NetCMClientProcesTunnelInd(const uint32_t* event) {
    if (is_null_record(event))
        return NETCM_ERR_INVALID_PARAM;
    const wire::Record indication = as_record(event);
    TunnelPayload payload(indication.Word2);
    if (!payload.allocated()) {
        payload.skip();
        QV_TRACE(4, "Memory can't be allocated for data.Data\n");
        return NETCM_ERR_FAILURE;
    }
    QV_TRACE(0, "Tunnel indication data length = %d\n", static_cast<int>(indication.Word2));
    const int32_t received = payload.read();
    if (received < 0)
        QV_TRACE(3, "Error reading response from CM errno = %d \n", errno);
    if (received <= 0)
        return NETCM_ERR_FAILURE;
    QV_TRACE(0, "Received tunnel indication data. Data length = %d\n", static_cast<int>(indication.Word2));
    NetCMTunnelData data = payload.record(indication.CallId);
    tell_registered({NETCM_EVENT_TUNNEL_IND, -1, 0, &data}, [](int32_t thread_id) {
        QV_TRACE(0, "Sent tunnel indication to thread [%d]\n", thread_id);
    });
    return NETCM_SUCCESS;
}

}  // extern "C"
