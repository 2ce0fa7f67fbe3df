// Threads and calls, looked up.
#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

#include "TableTest.h"

namespace quorvel::test {
namespace {

using Lookups = TableTest;

int32_t kernel_tid() {
    return static_cast<int32_t>(syscall(SYS_gettid));
}

TEST_F(Lookups, a_thread_is_known_by_its_kernel_id) {
    EXPECT_EQ(NetCMGetCurrentTid(), kernel_tid());
    std::thread([] { EXPECT_EQ(NetCMGetCurrentTid(), kernel_tid()); }).join();
}

TEST_F(Lookups, a_registered_thread_is_found) {
    table.ThreadInfo[4].ThreadId = 77;
    table.ThreadInfo[9].ThreadId = 77;
    int32_t index = -5;
    EXPECT_EQ(NetCMGetThreadIndex(77, &index), 0);
    EXPECT_EQ(index, 4);
    EXPECT_TRUE(trace::contains("Found thread [77] index at [4]\n"));
}

TEST_F(Lookups, an_unknown_thread_gives_minus_1) {
    int32_t index = -5;
    EXPECT_EQ(NetCMGetThreadIndex(77, &index), -1);
    EXPECT_TRUE(trace::traced(2, "Thread [77] not found\n", kUnit));
}

TEST_F(Lookups, a_profiles_call_is_found) {
    use(1, 3, 0, {5});
    table.CallInfo[1].CallId = 1;
    int32_t id = -5;
    int32_t index = -5;
    EXPECT_EQ(NetCMGetCallIdFromProfileId(5, &id, &index), 0u);
    EXPECT_EQ(id, 1);
    EXPECT_EQ(index, 1);
    EXPECT_TRUE(trace::contains("Call ID = [1]\n"));
}

TEST_F(Lookups, a_profile_without_a_call_gives_7_and_minus_1) {
    int32_t id = 5;
    int32_t index = 5;
    EXPECT_EQ(NetCMGetCallIdFromProfileId(5, &id, &index), NETCM_ERR_INVALID_PROFILE);
    EXPECT_EQ(id, -1);
}

TEST_F(Lookups, a_profile_in_a_free_entry_or_a_free_call_counts_as_absent) {
    use(1, 3, -1, {5});
    use(2, 0, 0, {6});
    table.CallInfo[2].InUse = 0;
    int32_t id = 0;
    int32_t index = 0;
    EXPECT_EQ(NetCMGetCallIdFromProfileId(5, &id, &index), NETCM_ERR_INVALID_PROFILE);
    EXPECT_EQ(NetCMGetCallIdFromProfileId(6, &id, &index), NETCM_ERR_INVALID_PROFILE);
    EXPECT_EQ(NetCMClientValidateConnection(5, &index), 0u);
    EXPECT_EQ(NetCMClientValidateConnection(6, &index), 0u);
    EXPECT_EQ(NetCMCheckValidProfileId(6), NETCM_ERR_INVALID_PROFILE);
}

TEST_F(Lookups, a_connection_that_does_not_exist_gives_0) {
    int32_t index = -5;
    EXPECT_EQ(NetCMClientValidateConnection(5, &index), 0u);
    EXPECT_TRUE(trace::contains("No Call exists with profile [5] \n"));
}

TEST_F(Lookups, a_connection_in_any_state_up_to_4_gives_10_and_its_call) {
    for (const uint32_t state : {0u, 3u, 4u}) {
        trace::clear();
        use(2, 1, 0, {5});
        table.CallInfo[2].CallState = state;
        int32_t index = -5;
        EXPECT_EQ(NetCMClientValidateConnection(5, &index), NETCM_ERR_ALREADY_EXISTS);
        EXPECT_EQ(index, 2);
        EXPECT_TRUE(trace::contains("A call already exist with profile [5] \n"));
    }
}

TEST_F(Lookups, a_connection_that_is_closing_gives_13) {
    for (const uint32_t state : {5u, 7u}) {
        trace::clear();
        use(2, 1, 0, {5});
        table.CallInfo[2].CallState = state;
        int32_t index = -5;
        EXPECT_EQ(NetCMClientValidateConnection(5, &index), NETCM_ERR_CALL_CLOSING);
        EXPECT_TRUE(trace::contains("A call is closing with profile [5] \n"));
    }
}

TEST_F(Lookups, a_thread_that_has_opened_the_profile_gives_10) {
    table.ThreadInfo[6].ThreadId = 77;
    use(1, 0, 6, {5});
    EXPECT_EQ(NetCMClientValidateAppThread(77, 1, 5), NETCM_ERR_ALREADY_EXISTS);
    EXPECT_TRUE(trace::contains("A call already exist for thread [77] with profile [5] \n"));
}

TEST_F(Lookups, a_thread_that_has_not_gives_0_while_there_is_an_entry) {
    table.ThreadInfo[6].ThreadId = 77;
    use(1, 0, 6, {5});
    EXPECT_EQ(NetCMClientValidateAppThread(77, 1, 6), 0u);
    EXPECT_EQ(NetCMClientValidateAppThread(78, 1, 5), 0u);
}

TEST_F(Lookups, a_full_call_gives_14_also_to_a_thread_that_is_on_it) {
    for (int entry = 0; entry < 16; ++entry) {
        table.ThreadInfo[entry].ThreadId = 70 + entry;
        use(1, entry, entry, {5});
    }
    EXPECT_EQ(NetCMClientValidateAppThread(99, 1, 5), NETCM_ERR_MAX_LIMIT);
    EXPECT_EQ(NetCMClientValidateAppThread(77, 1, 6), NETCM_ERR_MAX_LIMIT);
    EXPECT_EQ(NetCMClientValidateAppThread(77, 1, 5), NETCM_ERR_ALREADY_EXISTS);
}

TEST_F(Lookups, a_profile_id_below_1_is_invalid_without_a_search) {
    use(1, 0, 0, {0, -2});
    for (const int32_t profile : {0, -1, -2}) {
        EXPECT_EQ(NetCMCheckValidProfileId(profile), NETCM_ERR_INVALID_PROFILE);
        EXPECT_TRUE(trace::traced(3, trace::text("Invalid Profile ID [%d] \n", profile), kUnit));
    }
}

TEST_F(Lookups, a_profile_id_that_a_call_holds_is_valid) {
    use(3, 15, 0, {5});
    EXPECT_EQ(NetCMCheckValidProfileId(5), 0u);
    EXPECT_TRUE(trace::contains("Profile[5] exist for the callinstance 3 \n"));
    EXPECT_EQ(NetCMCheckValidProfileId(6), NETCM_ERR_INVALID_PROFILE);
}

TEST_F(Lookups, an_interface_is_supported_when_its_bit_is_in_the_mask) {
    table.ClientId = 1;
    table.IsRegistered = 1;
    EXPECT_EQ(NetCMNetIfaceSupportEx(1, 1), 1u);
    EXPECT_EQ(NetCMNetIfaceSupportEx(1, 2), 0u);
    EXPECT_EQ(NetCMNetIfaceSupportEx(2, 3), 1u);
    EXPECT_EQ(NetCMNetIfaceSupportEx(0, 3), 0u);
    EXPECT_EQ(NetCMNetIfaceSupportEx(3, 3), 0u);
    EXPECT_EQ(NetCMNetIfaceSupportEx(4, 4), 0u);
}

TEST_F(Lookups, no_interface_is_supported_before_registration) {
    EXPECT_EQ(NetCMNetIfaceSupportEx(1, 1), 0u);
    EXPECT_TRUE(trace::traced(2, "Cleint is not yet registered with CM\n", kUnit));
    table.ClientId = 1;
    EXPECT_EQ(NetCMNetIfaceSupportEx(1, 1), 0u) << "one of the two signs of registration is missing";
}

// Programs that were linked when it was the choice of linkers have it from here.
TEST_F(Lookups, the_kernel_id_is_to_be_had_as_gettid_too) {
    void* const found = dlvsym(RTLD_DEFAULT, "gettid", "QUORVEL_PRIVATE_4.0");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(reinterpret_cast<pid_t (*)()>(found)(), kernel_tid());
}

}  // namespace
}  // namespace quorvel::test
