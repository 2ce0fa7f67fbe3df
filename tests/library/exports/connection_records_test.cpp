// The records of NetCM.h in both data models.
#include "Records.h"
#include "quorvel/NetCM.h"

namespace quorvel::test {
namespace {

TEST(ConnectionRecords, an_address) {
    EXPECT_SIZE(NetCMAddr, 20);
    EXPECT_FIELD(NetCMAddr, Type, 0, uint32_t);
    EXPECT_FIELD(NetCMAddr, Addr, 4, uint8_t[16]);
}

TEST(ConnectionRecords, details_as_they_are_delivered) {
    EXPECT_SIZE(NetCMConnInfo, 148);
    EXPECT_FIELD(NetCMConnInfo, ProfileId, 0, int32_t);
    EXPECT_FIELD(NetCMConnInfo, IfaceName, 4, char[32]);
    EXPECT_FIELD(NetCMConnInfo, DnsAddr, 36, NetCMAddr[2]);
    EXPECT_FIELD(NetCMConnInfo, DnsCount, 76, int32_t);
    EXPECT_FIELD(NetCMConnInfo, IpAddr, 80, NetCMAddr);
    EXPECT_FIELD(NetCMConnInfo, HasOptAddr1, 100, uint16_t);
    EXPECT_FIELD(NetCMConnInfo, OptAddr1, 104, NetCMAddr);
    EXPECT_FIELD(NetCMConnInfo, HasOptAddr2, 124, uint16_t);
    EXPECT_FIELD(NetCMConnInfo, OptAddr2, 128, NetCMAddr);
}

TEST(ConnectionRecords, details_as_they_are_stored) {
    EXPECT_SIZE(NetCMCallConnInfo, 148);
    EXPECT_FIELD(NetCMCallConnInfo, IfaceName, 0, char[32]);
    EXPECT_FIELD(NetCMCallConnInfo, Reserved, 32, uint32_t);
    EXPECT_FIELD(NetCMCallConnInfo, DnsAddr, 36, NetCMAddr[2]);
    EXPECT_FIELD(NetCMCallConnInfo, DnsCount, 76, int32_t);
    EXPECT_FIELD(NetCMCallConnInfo, IpAddr, 80, NetCMAddr);
    EXPECT_FIELD(NetCMCallConnInfo, HasOptAddr1, 100, uint16_t);
    EXPECT_FIELD(NetCMCallConnInfo, OptAddr1, 104, NetCMAddr);
    EXPECT_FIELD(NetCMCallConnInfo, HasOptAddr2, 124, uint16_t);
    EXPECT_FIELD(NetCMCallConnInfo, OptAddr2, 128, NetCMAddr);
}

TEST(ConnectionRecords, an_event) {
    EXPECT_SIZE(NetCMEvent, in_32_or_64(16, 24));
    EXPECT_FIELD(NetCMEvent, EventType, 0, uint32_t);
    EXPECT_FIELD(NetCMEvent, ProfileId, 4, int32_t);
    EXPECT_FIELD(NetCMEvent, Result, 8, int32_t);
    EXPECT_FIELD(NetCMEvent, Data, in_32_or_64(12, 16), void*);
    EXPECT_TRUE((std::is_same_v<NetCMEventCallback, void (*)(NetCMEvent*)>));
}

TEST(ConnectionRecords, tunnel_data) {
    EXPECT_SIZE(NetCMTunnelData, in_32_or_64(16, 24));
    EXPECT_FIELD(NetCMTunnelData, Param, 0, int32_t);
    EXPECT_FIELD(NetCMTunnelData, RequestId, 4, uint32_t);
    EXPECT_FIELD(NetCMTunnelData, DataLength, 8, uint32_t);
    EXPECT_FIELD(NetCMTunnelData, Data, in_32_or_64(12, 16), void*);
}

TEST(ConnectionRecords, the_table) {
    EXPECT_SIZE(NetCMClientAppInfo, in_32_or_64(6636, 6840));
    EXPECT_FIELD(NetCMClientAppInfo, IsRegistered, 0, uint16_t);
    EXPECT_FIELD(NetCMClientAppInfo, ClientId, 4, int32_t);
    EXPECT_FIELD(NetCMClientAppInfo, RegCount, 8, int32_t);
    EXPECT_FIELD(NetCMClientAppInfo, RecvThreadId, in_32_or_64(12, 16), pthread_t);
    EXPECT_FIELD(NetCMClientAppInfo, SyncSockFd, in_32_or_64(16, 24), int32_t);
    EXPECT_FIELD(NetCMClientAppInfo, AsyncSockFd, in_32_or_64(20, 28), int32_t);
    EXPECT_FIELD(NetCMClientAppInfo, AppId, in_32_or_64(24, 32), int32_t);
    EXPECT_FIELD(NetCMClientAppInfo, CallInfo, in_32_or_64(28, 36), NetCMCallInfo[4]);
    EXPECT_FIELD(NetCMClientAppInfo, ThreadInfo, in_32_or_64(6060, 6072), NetCMThreadInfo[16]);
    EXPECT_FIELD(NetCMClientAppInfo, KillReq, in_32_or_64(6252, 6456), NetCMKillReq[4]);
    EXPECT_FIELD(NetCMClientAppInfo, TunnelReq, in_32_or_64(6284, 6488), NetCMTunnelReq[20]);
    EXPECT_FIELD(NetCMClientAppInfo, ProperProfReq, in_32_or_64(6444, 6648), NetCMProperProfReq[16]);
}

TEST(ConnectionRecords, a_call_and_who_uses_it) {
    EXPECT_SIZE(NetCMCallInfo, 1508);
    EXPECT_FIELD(NetCMCallInfo, InUse, 0, uint16_t);
    EXPECT_FIELD(NetCMCallInfo, CallId, 4, int32_t);
    EXPECT_FIELD(NetCMCallInfo, IsActive, 8, uint16_t);
    EXPECT_FIELD(NetCMCallInfo, ConnInfo, 12, NetCMCallConnInfo);
    EXPECT_FIELD(NetCMCallInfo, CallState, 160, uint32_t);
    EXPECT_FIELD(NetCMCallInfo, ThreadProf, 164, NetCMThreadProf[16]);
    EXPECT_SIZE(NetCMThreadProf, 84);
    EXPECT_FIELD(NetCMThreadProf, ThreadIndex, 0, int32_t);
    EXPECT_FIELD(NetCMThreadProf, ProfileId, 4, int32_t[20]);
}

TEST(ConnectionRecords, a_thread) {
    EXPECT_SIZE(NetCMThreadInfo, in_32_or_64(12, 24));
    EXPECT_FIELD(NetCMThreadInfo, ThreadId, 0, int32_t);
    EXPECT_FIELD(NetCMThreadInfo, EventCbk, in_32_or_64(4, 8), NetCMEventCallback);
    EXPECT_FIELD(NetCMThreadInfo, LastSyncError, in_32_or_64(8, 16), int32_t);
}

TEST(ConnectionRecords, what_waits_for_an_answer) {
    EXPECT_SIZE(NetCMKillReq, 8);
    EXPECT_FIELD(NetCMKillReq, ThreadId, 0, int32_t);
    EXPECT_FIELD(NetCMKillReq, ProfileId, 4, int32_t);
    EXPECT_SIZE(NetCMTunnelReq, 8);
    EXPECT_FIELD(NetCMTunnelReq, ThreadId, 0, int32_t);
    EXPECT_FIELD(NetCMTunnelReq, RequestId, 4, int32_t);
    EXPECT_SIZE(NetCMProperProfReq, 12);
    EXPECT_FIELD(NetCMProperProfReq, InUse, 0, uint16_t);
    EXPECT_FIELD(NetCMProperProfReq, ThreadId, 4, int32_t);
    EXPECT_FIELD(NetCMProperProfReq, ReqKey, 8, int32_t);
}

}  // namespace
}  // namespace quorvel::test
