// Sizes, offsets and first values, in both data models.
#include <cstddef>

#include "TableTest.h"
#include "common/Wire.h"

namespace quorvel::test {
namespace {

constexpr bool kIs32Bit = sizeof(void*) == 4;

// A value of the 32-bit model, and of the 64-bit model where a pointer changes it.
constexpr size_t in_32_or_64(size_t ilp32, size_t lp64) {
    return kIs32Bit ? ilp32 : lp64;
}

// Before main: what the loader has put there.
const NetCMClientAppInfo at_load = g_NetCMClientAppInfo;

#define EXPECT_AT(type, field, offset) EXPECT_EQ(offsetof(type, field), static_cast<size_t>(offset))

TEST(TableLayout, the_table_begins_with_the_link) {
    EXPECT_AT(NetCMClientAppInfo, IsRegistered, 0);
    EXPECT_AT(NetCMClientAppInfo, ClientId, 4);
    EXPECT_AT(NetCMClientAppInfo, RegCount, 8);
    EXPECT_AT(NetCMClientAppInfo, RecvThreadId, in_32_or_64(12, 16));
    EXPECT_AT(NetCMClientAppInfo, SyncSockFd, in_32_or_64(16, 24));
    EXPECT_AT(NetCMClientAppInfo, AsyncSockFd, in_32_or_64(20, 28));
    EXPECT_AT(NetCMClientAppInfo, AppId, in_32_or_64(24, 32));
}

TEST(TableLayout, the_arrays_follow_in_their_order) {
    EXPECT_AT(NetCMClientAppInfo, CallInfo, in_32_or_64(28, 36));
    EXPECT_AT(NetCMClientAppInfo, ThreadInfo, in_32_or_64(6060, 6072));
    EXPECT_AT(NetCMClientAppInfo, KillReq, in_32_or_64(6252, 6456));
    EXPECT_AT(NetCMClientAppInfo, TunnelReq, in_32_or_64(6284, 6488));
    EXPECT_AT(NetCMClientAppInfo, ProperProfReq, in_32_or_64(6444, 6648));
    EXPECT_EQ(sizeof(NetCMClientAppInfo), in_32_or_64(6636, 6840));
}

TEST(TableLayout, a_call_is_the_same_in_both_models) {
    EXPECT_AT(NetCMCallInfo, InUse, 0);
    EXPECT_AT(NetCMCallInfo, CallId, 4);
    EXPECT_AT(NetCMCallInfo, IsActive, 8);
    EXPECT_AT(NetCMCallInfo, ConnInfo, 12);
    EXPECT_AT(NetCMCallInfo, CallState, 160);
    EXPECT_AT(NetCMCallInfo, ThreadProf, 164);
    EXPECT_EQ(sizeof(NetCMCallInfo), 1508u);
    EXPECT_EQ(sizeof(NetCMThreadProf), 84u);
}

TEST(TableLayout, stored_details_are_the_same_in_both_models) {
    EXPECT_AT(NetCMCallConnInfo, IfaceName, 0);
    EXPECT_AT(NetCMCallConnInfo, DnsAddr, 36);
    EXPECT_AT(NetCMCallConnInfo, DnsCount, 76);
    EXPECT_AT(NetCMCallConnInfo, IpAddr, 80);
    EXPECT_AT(NetCMCallConnInfo, HasOptAddr1, 100);
    EXPECT_AT(NetCMCallConnInfo, OptAddr1, 104);
    EXPECT_AT(NetCMCallConnInfo, HasOptAddr2, 124);
    EXPECT_AT(NetCMCallConnInfo, OptAddr2, 128);
    EXPECT_EQ(sizeof(NetCMCallConnInfo), 148u);
}

TEST(TableLayout, delivered_details_are_the_same_in_both_models) {
    EXPECT_AT(NetCMConnInfo, ProfileId, 0);
    EXPECT_AT(NetCMConnInfo, IfaceName, 4);
    EXPECT_AT(NetCMConnInfo, DnsAddr, 36);
    EXPECT_AT(NetCMConnInfo, DnsCount, 76);
    EXPECT_AT(NetCMConnInfo, IpAddr, 80);
    EXPECT_AT(NetCMConnInfo, HasOptAddr1, 100);
    EXPECT_AT(NetCMConnInfo, OptAddr1, 104);
    EXPECT_AT(NetCMConnInfo, HasOptAddr2, 124);
    EXPECT_AT(NetCMConnInfo, OptAddr2, 128);
    EXPECT_EQ(sizeof(NetCMConnInfo), 148u);
    EXPECT_EQ(sizeof(NetCMAddr), 20u);
    EXPECT_AT(NetCMAddr, Addr, 4);
}

TEST(TableLayout, a_thread_and_the_pending_requests) {
    EXPECT_AT(NetCMThreadInfo, ThreadId, 0);
    EXPECT_AT(NetCMThreadInfo, EventCbk, in_32_or_64(4, 8));
    EXPECT_AT(NetCMThreadInfo, LastSyncError, in_32_or_64(8, 16));
    EXPECT_EQ(sizeof(NetCMThreadInfo), in_32_or_64(12, 24));
    EXPECT_EQ(sizeof(NetCMKillReq), 8u);
    EXPECT_EQ(sizeof(NetCMTunnelReq), 8u);
    EXPECT_EQ(sizeof(NetCMProperProfReq), 12u);
    EXPECT_AT(NetCMProperProfReq, ThreadId, 4);
    EXPECT_AT(NetCMProperProfReq, ReqKey, 8);
}

TEST(TableLayout, an_event_and_tunnel_data) {
    EXPECT_AT(NetCMEvent, EventType, 0);
    EXPECT_AT(NetCMEvent, ProfileId, 4);
    EXPECT_AT(NetCMEvent, Result, 8);
    EXPECT_AT(NetCMEvent, Data, in_32_or_64(12, 16));
    EXPECT_AT(NetCMTunnelData, Param, 0);
    EXPECT_AT(NetCMTunnelData, RequestId, 4);
    EXPECT_AT(NetCMTunnelData, DataLength, 8);
    EXPECT_AT(NetCMTunnelData, Data, in_32_or_64(12, 16));
}

TEST(TableLayout, a_local_answer_is_four_words) {
    EXPECT_EQ(sizeof(NetCMStartRspInfo), 16u);
    EXPECT_AT(NetCMStartRspInfo, ThreadId, 0);
    EXPECT_AT(NetCMStartRspInfo, CallIndex, 4);
    EXPECT_AT(NetCMStartRspInfo, ThreadIndex, 8);
    EXPECT_AT(NetCMStartRspInfo, ProfileId, 12);
}

TEST(TableLayout, what_travels_has_the_same_bytes_in_both_models) {
    EXPECT_EQ(sizeof(wire::RequestHeader), 24u);
    EXPECT_EQ(sizeof(wire::Record), 40u);
    EXPECT_EQ(sizeof(wire::ConnectionBlock), 144u);
    EXPECT_EQ(sizeof(wire::ProfileIdBlock), 68u);
    EXPECT_EQ(sizeof(wire::ProfileNameBlock), 1604u);
    EXPECT_EQ(sizeof(wire::ActiveConnectionBlock), 708u);
    EXPECT_EQ(sizeof(wire::StatisticsBlock), 24u);
}

TEST(TableAtLoad, is_zero_but_for_the_client_id) {
    NetCMClientAppInfo zeros{};
    zeros.ClientId = -1;
    EXPECT_EQ(std::memcmp(&at_load, &zeros, sizeof zeros), 0);
}

TEST(TableAtLoad, the_mutex_is_recursive_as_it_is) {
    ASSERT_EQ(pthread_mutex_lock(&NetCMAppMutex), 0);
    EXPECT_EQ(pthread_mutex_lock(&NetCMAppMutex), 0);
    EXPECT_EQ(pthread_mutex_unlock(&NetCMAppMutex), 0);
    EXPECT_EQ(pthread_mutex_unlock(&NetCMAppMutex), 0);
}

using InitialState = TableTest;

TEST_F(InitialState, is_what_an_initialisation_makes) {
    std::memset(&table, 0x11, sizeof table);
    EXPECT_EQ(NetCMClientLibInit(), 1);
    EXPECT_EQ(table.ClientId, -1);
    EXPECT_EQ(table.RecvThreadId, static_cast<pthread_t>(-1));
    EXPECT_EQ(table.SyncSockFd, -1);
    EXPECT_EQ(table.AsyncSockFd, -1);
    EXPECT_EQ(table.RegCount, 0);
    for (const NetCMCallInfo& info : table.CallInfo) {
        EXPECT_EQ(info.InUse, 0);
        EXPECT_EQ(info.CallId, -1);
        EXPECT_EQ(info.IsActive, 0);
        EXPECT_EQ(info.CallState, 0u);
        const NetCMCallConnInfo none{};
        EXPECT_EQ(std::memcmp(&info.ConnInfo, &none, sizeof none), 0);
        for (const NetCMThreadProf& prof : info.ThreadProf) {
            EXPECT_EQ(prof.ThreadIndex, -1);
            EXPECT_THAT(prof.ProfileId, ::testing::Each(-1));
        }
    }
    for (const NetCMThreadInfo& thread : table.ThreadInfo) {
        EXPECT_EQ(thread.ThreadId, -1);
        EXPECT_EQ(thread.EventCbk, nullptr);
        EXPECT_EQ(thread.LastSyncError, -1);
    }
    for (const NetCMKillReq& pair : table.KillReq)
        EXPECT_TRUE(pair.ThreadId == -1 && pair.ProfileId == -1);
    for (const NetCMTunnelReq& pair : table.TunnelReq)
        EXPECT_TRUE(pair.ThreadId == -1 && pair.RequestId == -1);
}

TEST_F(InitialState, leaves_registration_and_profile_questions_alone) {
    table.IsRegistered = 1;
    table.ProperProfReq[5] = {.InUse = 1, .ThreadId = 7, .ReqKey = 8};
    NetCMClientLibInit();
    EXPECT_EQ(table.IsRegistered, 1);
    EXPECT_EQ(table.ProperProfReq[5].InUse, 1);
    EXPECT_EQ(table.ProperProfReq[5].ReqKey, 8);
    table.ProperProfReq[5] = {.InUse = 0, .ThreadId = -1, .ReqKey = -1};
}

TEST_F(InitialState, of_one_call_is_what_cleaning_makes) {
    use(1, 4, 3, {7, 8});
    table.CallInfo[1].IsActive = 1;
    table.CallInfo[1].CallState = 5;
    std::strcpy(table.CallInfo[1].ConnInfo.IfaceName, "pdp0");
    use(2, 0, 0, {9});
    EXPECT_EQ(NetCMClientCleanCallInfo(1), 0u);
    EXPECT_EQ(std::memcmp(&table.CallInfo[1], &table.CallInfo[0], sizeof(NetCMCallInfo)), 0);
    EXPECT_EQ(table.CallInfo[2].InUse, 1);
}

}  // namespace
}  // namespace quorvel::test
