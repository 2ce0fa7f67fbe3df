// The entry points between the modules of the library. They are exported, in a node of their own, so that the
// library can be tested and diagnosed piece by piece; applications do not call them.
#pragma once

#include <cstdint>

#include "appmgr_ids.h"
#include "common/AppMutexCapability.h"
#include "common/Trace.h"
#include "evtsys.h"
#include "quorvel/NetCM.h"

// A request that the library answers without the server; consumed by a local response thread.
struct NetCMStartRspInfo {
    uint32_t ThreadId;
    uint32_t CallIndex;
    uint32_t ThreadIndex;
    uint32_t ProfileId;
};
static_assert(sizeof(NetCMStartRspInfo) == 16);

extern "C" {

// Transport: one request out, one record in.
uint32_t NetCMSendRequest(int fd, const void* buf, uint32_t len) QV_REQUIRES(quorvel::app_mutex);
int32_t NetCMReadSocket(int fd, void* buf, uint32_t len) QV_REQUIRES(quorvel::app_mutex);
int32_t NetCMReadSocketEx(int fd, void* buf, int len) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMReadResponse(int fd, uint32_t expectedCode, uint32_t rsp[10]) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientReadMoreData(int fd, void* dst, uint32_t len) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMWriteSocket(int fd, const void* buf, uint32_t len) QV_REQUIRES(quorvel::app_mutex);

// Link: connect, register, repair, take down.
int32_t NetCMClientLibInit(void) QV_REQUIRES(quorvel::app_mutex);
int NetCMClientInit(int32_t* clientIdOut) QV_REQUIRES(quorvel::app_mutex);
int NetCMClientAsyncEventInit(uint32_t clientId) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientReRegister(void) QV_REQUIRES(quorvel::app_mutex);
int32_t NetCMClientExit(int syncFd) QV_REQUIRES(quorvel::app_mutex);
extern int pipe_fds[2];
extern uint32_t* PendingEventRecord;

// Receiver.
void* NetCMClientThread(void* asyncFd);
int32_t NetCMClientLibCbk(int asyncFd);

// Table. None of these checks its indices.
int32_t NetCMClientThreadProfGetProfileCount(int32_t call, int32_t threadProf, int32_t* count)
    QV_REQUIRES(quorvel::app_mutex);
int32_t NetCMClientThreadProfGetFreeProfileEntry(int32_t call, int32_t threadProf, int32_t* slot)
    QV_REQUIRES(quorvel::app_mutex);
int32_t NetCMClientThreadProfGetFreeThreadEntry(int32_t call, int32_t* threadProf)
    QV_REQUIRES(quorvel::app_mutex);
int32_t NetCMClientThreadProfCheckFreeProfileEntry(int32_t call, int32_t threadProf)
    QV_REQUIRES(quorvel::app_mutex);
int32_t NetCMClientThreadProfCheckFreeThreadEntry(int32_t call) QV_REQUIRES(quorvel::app_mutex);
int32_t NetCMClientThreadProfCheckThreadEntry(int32_t call, int32_t thread, int32_t* threadProf)
    QV_REQUIRES(quorvel::app_mutex);
int32_t NetCMClientThreadProfGetProfileIndex(int32_t call, int32_t threadProf, int32_t profile)
    QV_REQUIRES(quorvel::app_mutex);
int32_t NetCMClientThreadProfDeleteProfileEntry(int32_t call, int32_t threadProf, int32_t profile)
    QV_REQUIRES(quorvel::app_mutex);
int32_t NetCMClientThreadProfCheckProfile(int32_t call, int32_t threadProf, int32_t profile)
    QV_REQUIRES(quorvel::app_mutex);
int32_t NetCMGetCurrentTid(void);
int32_t NetCMGetThreadIndex(int32_t tid, int32_t* index);
uint32_t NetCMGetCallIdFromProfileId(int32_t profile, int32_t* callId, int32_t* callIndex)
    QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientValidateConnection(int32_t profile, int32_t* callIndex) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientValidateAppThread(int32_t tid, int32_t callIndex, int32_t profile)
    QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMCheckValidProfileId(int32_t profile);
uint32_t NetCMClientCleanCallInfo(int32_t callIndex) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientAddCall(int32_t callId, int32_t threadIndex, int32_t profile)
    QV_REQUIRES(quorvel::app_mutex);

// Calls.
uint32_t NetCMClientAddThreadToCallinfo(int32_t tid, int32_t callIndex, int32_t profile, int32_t threadIndex)
    QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientRemoveCall(int32_t clientId, int32_t tid, int32_t callId, int32_t profile,
                               int32_t threadIndex) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMNetIfaceSupportEx(uint32_t netIface, uint32_t ifaceList);
uint32_t NetCMClientTunnelRequest(NetCMTunnelData* record, int32_t index) QV_REQUIRES(quorvel::app_mutex);
int32_t NetCMCopyAddress(NetCMAddr* destination, const NetCMAddr* source);
void* ThreadPostStartEvent(void* block);
void* ThreadPostStopEvent(void* block);

// Event processors: the record is ten words.
uint32_t NetCMClientProcesStartRsp(const uint32_t* record) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientProcesStopRsp(const uint32_t* record) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientProcesKillRsp(const uint32_t* record) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientProcesStopInd(const uint32_t* record) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientProcessSuspendInd(const uint32_t* record) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientProcessResumeInd(const uint32_t* record) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientProcessNetworkStatusChangeInd(const uint32_t* record) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientProcesIpChangeInd(const uint32_t* record) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientProcesTunnelRsp(const uint32_t* event) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientProcesTunnelInd(const uint32_t* event) QV_REQUIRES(quorvel::app_mutex);
uint32_t NetCMClientProcessProperProfRsp(const uint32_t* record) QV_REQUIRES(quorvel::app_mutex);
}
