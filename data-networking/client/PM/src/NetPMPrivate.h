// The entry points of the profile-manager client between the modules of the library: exported for its tests
// and for diagnosis, not for applications.
#pragma once

#include "common/AppMutexCapability.h"
#include "common/PmWire.h"
#include "common/Trace.h"

// One exchange on the profile path. Zero it before each request.
struct PmRspContext {
    uint32_t ExtLength;
    quorvel::wire::PmResponseBlock* pRspData;  // the caller's, to be filled
    void* pExtRspData;                         // from malloc; the caller frees it
};

extern "C" {

// Requests and answers on the sync socket.
uint32_t NetCMSendPMReq(uint32_t cmd, const void* payload, uint32_t length) QV_REQUIRES(quorvel::app_mutex);
int32_t NetCMReadSyncRsp(int32_t event, uint32_t* out) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientReadMoreSyncData(void* buffer, int32_t length) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetPMSendReceiveSync(const void* request, uint32_t length, PmRspContext* ctx)
    QV_REQUIRES(quorvel::app_mutex);
uint32_t NetPMAppProfSendSyncReq(const void* request, uint32_t length) QV_REQUIRES(quorvel::app_mutex);
int32_t NetPMAppProfRecvSyncRsp(void* out, uint32_t length) QV_REQUIRES(quorvel::app_mutex);

// Brings the dotted address with optional port in a 64-byte field into the form that the server expects.
void NetPMAdjustIpStr(char* ip);

// Trace every field of a record: 0, or NETCM_ERR_INVALID_PARAM where a type or a mode is none.
uint32_t PrintNetPMProfile(const NetPMProfile* profile);
uint32_t PrintNetPMPDPProfile(const NetPMProfile* profile);
uint32_t PrintNetPMWlanProfile(const NetPMProfile* profile);
uint32_t PrintNetPMWlanProfNetInfo(const NetPMWlanProfNetInfo* net_info);
uint32_t PrintNetPMWlanProfSecurity(const NetPMWlanProfSecurity* security);
uint32_t PrintNetPMWlanProfSecWep(const NetPMWlanProfSecWep* wep);
uint32_t PrintNetPMWlanProfSecPsk(const NetPMWlanProfSecPsk* psk);
uint32_t PrintNetPMWlanProfSecEap(const NetPMWlanProfSecEap* eap);
}
