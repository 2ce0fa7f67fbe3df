// First values, and the layout of what the public headers do not show.
#include <cstddef>

#include "TableTest.h"
#include "common/Wire.h"

namespace quorvel::test {
namespace {

// Before main: what the loader has put there.
const NetCMClientAppInfo at_load = g_NetCMClientAppInfo;

#define EXPECT_AT(type, field, offset) EXPECT_EQ(offsetof(type, field), static_cast<size_t>(offset))

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
