// A call that the server has accepted, put into the table.
#include "TableTest.h"

namespace quorvel::test {
namespace {

using AddedCall = TableTest;

TEST_F(AddedCall, starts_its_record) {
    std::memset(&table.CallInfo[2].ConnInfo, 1, sizeof(NetCMCallConnInfo));
    EXPECT_EQ(NetCMClientAddCall(2, 5, 9), 0u);
    const NetCMCallInfo& info = table.CallInfo[2];
    EXPECT_EQ(info.InUse, 1);
    EXPECT_EQ(info.CallId, 2);
    EXPECT_EQ(info.IsActive, 0);
    EXPECT_EQ(info.CallState, 0u);
    EXPECT_EQ(info.ThreadProf[0].ThreadIndex, 5);
    EXPECT_EQ(info.ThreadProf[0].ProfileId[0], 9);
    EXPECT_EQ(info.ThreadProf[0].ProfileId[1], -1);
    const NetCMCallConnInfo none{};
    EXPECT_EQ(std::memcmp(&info.ConnInfo, &none, sizeof none), 0);
    EXPECT_TRUE(trace::contains("Call Info stored at index [2]\n"));
}

TEST_F(AddedCall, with_an_id_that_is_no_index_is_refused) {
    const NetCMClientAppInfo before = table;
    for (const int32_t id : {4, 5, 100, -1, INT32_MIN}) {
        EXPECT_EQ(NetCMClientAddCall(id, 5, 9), NETCM_ERR_INVALID_PARAM);
        EXPECT_TRUE(trace::contains(trace::text("Invalid call ID [%d]\n", id)));
    }
    EXPECT_EQ(std::memcmp(&table, &before, sizeof table), 0);
}

TEST_F(AddedCall, that_is_there_gets_a_further_profile_of_the_thread) {
    NetCMClientAddCall(1, 5, 9);
    EXPECT_EQ(NetCMClientAddCall(1, 5, 10), 0u);
    EXPECT_TRUE(trace::contains("Call already exists for this APN\n"));
    EXPECT_EQ(table.CallInfo[1].ThreadProf[0].ProfileId[1], 10);
    EXPECT_EQ(table.CallInfo[1].ThreadProf[1].ThreadIndex, -1);
}

TEST_F(AddedCall, that_is_there_gets_a_further_thread) {
    NetCMClientAddCall(1, 5, 9);
    EXPECT_EQ(NetCMClientAddCall(1, 6, 10), 0u);
    EXPECT_EQ(table.CallInfo[1].ThreadProf[1].ThreadIndex, 6);
    EXPECT_EQ(table.CallInfo[1].ThreadProf[1].ProfileId[0], 10);
    EXPECT_EQ(table.CallInfo[1].ThreadProf[0].ProfileId[0], 9);
}

TEST_F(AddedCall, without_a_free_slot_overwrites_the_first) {
    fill(use(1, 0, 5, {}));
    EXPECT_EQ(NetCMClientAddCall(1, 5, 77), 0u);
    EXPECT_EQ(table.CallInfo[1].ThreadProf[0].ProfileId[0], 77);
    EXPECT_EQ(table.CallInfo[1].ThreadProf[0].ProfileId[1], 101);
}

TEST_F(AddedCall, without_a_free_entry_overwrites_the_first) {
    for (int entry = 0; entry < 16; ++entry)
        use(1, entry, entry, {50 + entry});
    EXPECT_EQ(NetCMClientAddCall(1, 20, 77), 0u);
    EXPECT_EQ(table.CallInfo[1].ThreadProf[0].ThreadIndex, 20);
    EXPECT_EQ(table.CallInfo[1].ThreadProf[0].ProfileId[0], 77);
    EXPECT_EQ(table.CallInfo[1].ThreadProf[1].ProfileId[0], 51);
}

TEST_F(AddedCall, leaves_the_state_of_a_call_that_is_there) {
    use(1, 0, 5, {9});
    table.CallInfo[1].IsActive = 1;
    table.CallInfo[1].CallState = 4;
    NetCMClientAddCall(1, 6, 10);
    EXPECT_EQ(table.CallInfo[1].IsActive, 1);
    EXPECT_EQ(table.CallInfo[1].CallState, 4u);
}

}  // namespace
}  // namespace quorvel::test
