// The thread-profile entries of a call.
#include "TableTest.h"

namespace quorvel::test {
namespace {

using Entries = TableTest;

TEST_F(Entries, a_count_is_added_to_what_the_caller_has) {
    use(1, 2, 0, {5, 6, 7});
    int32_t count = 0;
    EXPECT_EQ(NetCMClientThreadProfGetProfileCount(1, 2, &count), 0);
    EXPECT_EQ(count, 3);
    EXPECT_TRUE(trace::contains("Porfile count = [3]\n"));
    EXPECT_EQ(NetCMClientThreadProfGetProfileCount(1, 2, &count), 0);
    EXPECT_EQ(count, 6);
}

TEST_F(Entries, a_count_passes_over_empty_slots) {
    NetCMThreadProf& prof = use(1, 2, 0, {5});
    prof.ProfileId[19] = 6;
    int32_t count = 0;
    NetCMClientThreadProfGetProfileCount(1, 2, &count);
    EXPECT_EQ(count, 2);
}

TEST_F(Entries, the_first_empty_slot_is_found) {
    NetCMThreadProf& prof = use(0, 0, 0, {5, 6, 7});
    int32_t slot = -5;
    EXPECT_EQ(NetCMClientThreadProfGetFreeProfileEntry(0, 0, &slot), 0);
    EXPECT_EQ(slot, 3);
    prof.ProfileId[1] = -1;
    EXPECT_EQ(NetCMClientThreadProfGetFreeProfileEntry(0, 0, &slot), 0);
    EXPECT_EQ(slot, 1);
}

TEST_F(Entries, twenty_profiles_fill_an_entry) {
    fill(use(0, 0, 0, {}));
    int32_t slot = -5;
    EXPECT_EQ(NetCMClientThreadProfGetFreeProfileEntry(0, 0, &slot), 1);
    EXPECT_EQ(NetCMClientThreadProfCheckFreeProfileEntry(0, 0), 0);
    table.CallInfo[0].ThreadProf[0].ProfileId[19] = -1;
    EXPECT_EQ(NetCMClientThreadProfCheckFreeProfileEntry(0, 0), 1);
    EXPECT_TRUE(trace::contains("Free profile entries are present. Thread-profile index [0]\n"));
}

TEST_F(Entries, the_first_free_entry_is_found) {
    use(3, 0, 7, {5});
    use(3, 2, 8, {5});
    int32_t entry = -5;
    EXPECT_EQ(NetCMClientThreadProfGetFreeThreadEntry(3, &entry), 0);
    EXPECT_EQ(entry, 1);
    EXPECT_EQ(NetCMClientThreadProfCheckFreeThreadEntry(3), 1);
    EXPECT_TRUE(trace::contains("Free thread entries are present. Call index [3]\n"));
}

TEST_F(Entries, sixteen_entries_fill_a_call) {
    for (int entry = 0; entry < 16; ++entry)
        use(3, entry, entry, {5});
    int32_t found = -5;
    EXPECT_EQ(NetCMClientThreadProfGetFreeThreadEntry(3, &found), 1);
    EXPECT_EQ(NetCMClientThreadProfCheckFreeThreadEntry(3), 0);
    EXPECT_FALSE(trace::contains("Free thread entries are present. Call index [3]\n"));
}

TEST_F(Entries, the_entry_of_a_thread_is_found_by_its_index) {
    use(2, 5, 11, {5});
    int32_t entry = -5;
    EXPECT_EQ(NetCMClientThreadProfCheckThreadEntry(2, 11, &entry), 1);
    EXPECT_EQ(entry, 5);
    EXPECT_TRUE(trace::contains("Thread exist in call list. Thread-profile index [5]\n"));
    EXPECT_EQ(NetCMClientThreadProfCheckThreadEntry(2, 12, &entry), 0);
    EXPECT_TRUE(trace::contains("Thread does not exist in call list.\n"));
}

TEST_F(Entries, the_slot_of_a_profile_is_found) {
    use(2, 5, 11, {5, 6});
    EXPECT_EQ(NetCMClientThreadProfGetProfileIndex(2, 5, 6), 1);
    EXPECT_EQ(NetCMClientThreadProfGetProfileIndex(2, 5, 7), -1);
    EXPECT_EQ(NetCMClientThreadProfCheckProfile(2, 5, 6), 1);
    EXPECT_TRUE(trace::contains("Profile [6] found in the call list\n"));
    EXPECT_EQ(NetCMClientThreadProfCheckProfile(2, 5, 7), 0);
    EXPECT_TRUE(trace::contains("Profile [7] not found in the call list\n"));
}

TEST_F(Entries, a_profile_is_deleted) {
    NetCMThreadProf& prof = use(2, 5, 11, {5, 6});
    EXPECT_EQ(NetCMClientThreadProfDeleteProfileEntry(2, 5, 6), 1);
    EXPECT_EQ(prof.ProfileId[0], 5);
    EXPECT_EQ(prof.ProfileId[1], -1);
    EXPECT_EQ(prof.ThreadIndex, 11);
    EXPECT_TRUE(trace::contains("Deleted Profile [6] from the call list. Thread-profile index [5]\n"));
}

TEST_F(Entries, deleting_a_profile_that_is_not_there_changes_nothing_and_gives_1) {
    use(2, 5, 11, {5, 6});
    const NetCMClientAppInfo before = table;
    EXPECT_EQ(NetCMClientThreadProfDeleteProfileEntry(2, 5, 99), 1);
    EXPECT_EQ(std::memcmp(&table, &before, sizeof table), 0);
    EXPECT_FALSE(trace::wait_for_prefix("Deleted Profile", std::chrono::milliseconds(0)));
}

}  // namespace
}  // namespace quorvel::test
