// Several threads, or several profiles of one thread, on one call.
#include <numeric>

#include "CallTest.h"

namespace quorvel::test {
namespace {

class Join : public CallTest {
  protected:
    std::vector<int32_t> twenty_profiles_from(int32_t first) {
        std::vector<int32_t> profiles(NETCM_MAX_PROFILES);
        std::iota(profiles.begin(), profiles.end(), first);
        return profiles;
    }
    void expect_one_start_request() { EXPECT_EQ(server.count(wire::NETCM_CLIENT_START_REQ), 1u); }
};

TEST_F(Join, a_thread_that_joins_a_rising_call_waits_with_the_first) {
    User& first = registered(0);
    User& second = registered(1);
    EXPECT_EQ(first.open(7), NETCM_SUCCESS);
    trace::clear();
    EXPECT_EQ(second.open(7), NETCM_SUCCESS);
    EXPECT_TRUE(traced_in_order({{0, "A call already exist with profile [7] \n"},
                                 {0, "Free thread entries are present. Call index [0]\n"},
                                 {0, trace::text("No instance exists for the thread [%d]\n", second.tid())},
                                 {0, "Found free thread-profile index = [1]\n"},
                                 {0, trace::text("Added thread %d in the call 0 \n", second.tid())}}));
    EXPECT_FALSE(trace::contains("Call is already active, send response to thread \n"));
    EXPECT_EQ(events::count(), 0u);
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 7, 0}, {1, NETCM_EVENT_OPEN_RSP, 7, 0}}));
    expect_one_start_request();
}

TEST_F(Join, a_thread_that_joins_a_call_that_is_up_is_answered_locally) {
    bring_up(registered(0), 7);
    User& late = registered(1);
    events::clear();
    trace::clear();
    EXPECT_EQ(late.open(7), NETCM_SUCCESS);
    ASSERT_TRUE(events::wait_for(1));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 7, 0}}));
    const Event answer = events::all().at(0);
    EXPECT_NE(answer.thread, receiver_tid());
    EXPECT_NE(answer.thread, late.tid());
    EXPECT_TRUE(answer.mutex_was_held);
    expect_one_start_request();
    EXPECT_TRUE(trace::wait_for_prefix("Rsp pointer = "));
    EXPECT_TRUE(trace::wait_for_prefix("Local thread to send open response created, ID = "));
    EXPECT_TRUE(traced_in_order({{0, "Found free thread-profile index = [1]\n"},
                                 {0, "Call is already active, send response to thread \n"},
                                 {0, trace::text("Added thread %d in the call 0 \n", late.tid())}}));
}

TEST_F(Join, the_local_answer_comes_after_the_open_has_returned) {
    bring_up(registered(0), 7);
    User& late = registered(1);
    late.run([] {
        // The mutex is ours: the open inside returns, and nobody can be told before we let go.
        pthread_mutex_lock(&NetCMAppMutex);
        const int32_t profile = 7;
        EXPECT_EQ(NetCMConnectionOpen(&profile, 1), NETCM_SUCCESS);
        EXPECT_TRUE(trace::wait_for_prefix("In __start_conn_thread to send local start response"));
        EXPECT_EQ(events::of(1).size(), 0u);
        pthread_mutex_unlock(&NetCMAppMutex);
    });
    EXPECT_TRUE(events::wait_for_user(1, 1));
}

TEST_F(Join, the_same_thread_cannot_open_a_profile_twice) {
    User& who = registered(0);
    EXPECT_EQ(who.open(7), NETCM_SUCCESS);
    EXPECT_EQ(who.open(7), NETCM_ERR_ALREADY_EXISTS);
    EXPECT_TRUE(traced_in_order(
        {{2, trace::text("A call already exist for thread [%d] with profile [7] \n", who.tid())},
         {2, trace::text("Thread [%d] has active call with profile [7]\n", who.tid())}}));
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    EXPECT_EQ(who.open(7), NETCM_ERR_ALREADY_EXISTS);
    expect_one_start_request();
    EXPECT_EQ(events::count(), 1u);
}

TEST_F(Join, a_closing_call_cannot_be_joined) {
    bring_up(registered(0), 7);
    User& late = registered(1);
    for (const uint32_t state : {5u, 6u, 7u}) {
        set_call_state(0, state);
        trace::clear();
        EXPECT_EQ(late.open(7), NETCM_ERR_CALL_CLOSING);
        EXPECT_TRUE(traced_in_order(
            {{2, "A call is closing with profile [7] \n"}, {2, "Error validating the call..\n"}}));
    }
    expect_one_start_request();
}

TEST_F(Join, a_suspended_and_a_resumed_call_can_be_joined) {
    bring_up(registered(0), 7);
    set_call_state(0, 4);
    join(registered(1), 7);
    set_call_state(0, 3);
    join(registered(2), 7);
    expect_one_start_request();
}

TEST_F(Join, a_thread_that_is_on_the_call_gets_the_profile_into_its_entry) {
    bring_up(registered(0), 7);
    User& late = registered(1);
    set_entry(0, 1, 1, {8});
    trace::clear();
    join(late, 7);
    EXPECT_TRUE(traced_in_order({{0, "Thread exist in call list. Thread-profile index [1]\n"},
                                 {0, "Free profile entries are present. Thread-profile index [1]\n"},
                                 {0, "Thread instance = [1]\n"}}));
    const NetCMCallInfo stored = call(0);
    EXPECT_EQ(stored.ThreadProf[1].ProfileId[0], 8);
    EXPECT_EQ(stored.ThreadProf[1].ProfileId[1], 7);
    EXPECT_EQ(stored.ThreadProf[2].ThreadIndex, -1);
}

TEST_F(Join, a_thread_with_twenty_profiles_on_the_call_has_no_room) {
    bring_up(registered(0), 7);
    User& late = registered(1);
    set_entry(0, 1, 1, twenty_profiles_from(100));
    EXPECT_EQ(late.open(7), NETCM_ERR_MAX_LIMIT);
    EXPECT_TRUE(traced_in_order({{2, trace::text("No free profile entry for thread [%d]\n", late.tid())}}));
}

TEST_F(Join, a_full_call_takes_no_other_thread) {
    bring_up(registered(0), 7);
    User& late = registered(1);
    for (int entry = 1; entry < NETCM_MAX_THREADS; ++entry)
        set_entry(0, entry, 0, {100 + entry});
    EXPECT_EQ(late.open(7), NETCM_ERR_MAX_LIMIT);
    EXPECT_TRUE(traced_in_order({{2, "No free thread entry in call list\n"}}));
}

TEST_F(Join, a_full_call_takes_no_further_profile_of_its_own_threads) {
    bring_up(registered(0), 7);
    User& late = registered(1);
    for (int entry = 1; entry < NETCM_MAX_THREADS; ++entry)
        set_entry(0, entry, entry == 5 ? 1 : 0, {100 + entry});
    EXPECT_EQ(late.open(7), NETCM_ERR_MAX_LIMIT);
    EXPECT_TRUE(traced_in_order({{0, "Free profile entries are present. Thread-profile index [5]\n"},
                                 {2, "Max. connection limit reached\n"}}));
    EXPECT_EQ(call(0).ThreadProf[5].ProfileId[1], -1);
}

TEST_F(Join, sixteen_threads_share_one_call) {
    bring_up(registered(0), 7);
    for (int number = 1; number < NETCM_MAX_THREADS; ++number)
        join(registered(number), 7);
    expect_one_start_request();
    for (int number = 0; number < NETCM_MAX_THREADS; ++number)
        EXPECT_EQ(events::of(number).size(), 1u) << number;
}

TEST_F(Join, without_memory_for_the_answer_nothing_is_added) {
    bring_up(registered(0), 7);
    User& late = registered(1);
    calls::fail(Call::Malloc);
    EXPECT_EQ(late.open(7), NETCM_ERR_FAILURE);
    EXPECT_TRUE(calls::has_failed(Call::Malloc));
    EXPECT_TRUE(traced_in_order({{2, "Error validating the call..\n"}}));
    EXPECT_EQ(call(0).ThreadProf[1].ThreadIndex, -1);
    join(late, 7);
}

TEST_F(Join, without_a_thread_for_the_answer_the_entry_stays) {
    bring_up(registered(0), 7);
    User& late = registered(1);
    calls::fail(Call::ThreadCreate);
    EXPECT_EQ(late.open(7), NETCM_ERR_FAILURE);
    EXPECT_TRUE(traced_in_order({{4, trace::text("Local thread creation failed. Error = [%d]\n", EAGAIN)},
                                 {2, "Error validating the call..\n"}}));
    EXPECT_EQ(call(0).ThreadProf[1].ThreadIndex, 1);
    EXPECT_EQ(call(0).ThreadProf[1].ProfileId[0], 7);
    EXPECT_EQ(late.open(7), NETCM_ERR_ALREADY_EXISTS);
    EXPECT_EQ(events::of(1).size(), 0u);
}

TEST_F(Join, on_a_rising_call_no_thread_is_needed) {
    EXPECT_EQ(registered(0).open(7), NETCM_SUCCESS);
    User& second = registered(1);
    calls::fail(Call::ThreadCreate);
    EXPECT_EQ(second.open(7), NETCM_SUCCESS);
    EXPECT_FALSE(calls::has_failed(Call::ThreadCreate));
}

}  // namespace
}  // namespace quorvel::test
