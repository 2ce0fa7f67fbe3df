// Closing: a thread gives up its own use of a profile, and the last one stops the call.
#include "CallTest.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kStop = wire::NETCM_CLIENT_STOP_REQ;

class Close : public CallTest {
  protected:
    // User 0 with profile 7 on call 0, up.
    User& up() {
        User& who = registered(0);
        bring_up(who, 7);
        events::clear();
        trace::clear();
        return who;
    }
};

TEST_F(Close, an_id_below_1_is_refused_before_any_lock) {
    User& who = user(0);
    for (const int32_t id : {0, -1}) {
        trace::clear();
        EXPECT_EQ(who.close(id), NETCM_ERR_INVALID_PROFILE);
        EXPECT_TRUE(traced_in_order(
            {{0, trace::text("Stop Network Connection Request from the client -1, profile id = %d\n", id)},
             {2, trace::text("PS Connection Close START TIME = %f\n", ps_call_deact_time[0])},
             {5, trace::text("Invalid profile ID [%d]\n", id)}}));
    }
    EXPECT_EQ(calls::count(Call::MutexLock), 0u);
}

TEST_F(Close, an_unregistered_process_is_refused) {
    EXPECT_EQ(user(0).close(7), NETCM_ERR_NOT_REGISTERED);
    EXPECT_TRUE(traced_in_order({{2, "Cleint is not yet registered with CM\n"}}));
}

TEST_F(Close, an_unregistered_thread_is_refused) {
    up();
    EXPECT_EQ(user(1).close(7), NETCM_ERR_NOT_REGISTERED);
    EXPECT_TRUE(traced_in_order({{2, "Thread information is not present with CM\n"}}));
}

TEST_F(Close, the_last_user_sends_one_stop_request) {
    User& who = up();
    server.on(kStop, silence());
    EXPECT_EQ(who.close(7), NETCM_SUCCESS);
    ASSERT_TRUE(server.wait_for(kStop));
    const wire::RequestHeader expected = {5, 0, server.client_id(), 0, 7, 0};
    EXPECT_EQ(bytes_of(server.last(kStop)->header), bytes_of(expected));
    EXPECT_EQ(count_unanswered(kStop), 1u);
    EXPECT_EQ(call(0).CallState, 5u);
    EXPECT_EQ(call(0).ThreadProf[0].ProfileId[0], 7) << "the entry stays until the response";
    EXPECT_EQ(who.open(7), NETCM_ERR_CALL_CLOSING);
    EXPECT_EQ(registered(1).open(7), NETCM_ERR_CALL_CLOSING);
}

TEST_F(Close, the_stop_request_names_the_call) {
    User& who = up();
    EXPECT_EQ(who.open(8), NETCM_SUCCESS);
    server.on(kStop, silence());
    EXPECT_EQ(who.close(8), NETCM_SUCCESS);
    ASSERT_TRUE(server.wait_for(kStop));
    EXPECT_EQ(server.last(kStop)->header.Arg3, 1u);
    EXPECT_EQ(server.last(kStop)->header.Arg4, 8u);
}

TEST_F(Close, its_steps_are_traced_in_order) {
    User& who = up();
    EXPECT_EQ(who.close(7), NETCM_SUCCESS);
    const auto client = static_cast<int>(server.client_id());
    EXPECT_TRUE(traced_in_order(
        {{0, trace::text("Stop Network Connection Request from the client %d, profile id = 7\n", client)},
         {2, trace::text("PS Connection Close START TIME = %f\n", ps_call_deact_time[0])},
         {0, trace::text("Thread [%d] trying to lock the Mutex \n", who.tid())},
         {0, trace::text("Mutex locked by thread [%d] \n", who.tid())},
         {0, "Call ID = [0]\n"},
         {0, "Thread is using this call\n"},
         {0, trace::text("call exist for thread [%d] with profile [7]\n", who.tid())},
         {0, "Porfile count = [1]\n"},
         {0, "Sending stop request to PS server for call id 0\n"},
         {0, trace::text("Mutex unlocked by thread [%d] \n", who.tid())}}));
}

TEST_F(Close, the_response_tells_the_user_and_frees_the_call) {
    User& who = up();
    EXPECT_EQ(who.close(7), NETCM_SUCCESS);
    ASSERT_TRUE(events::wait_for(1));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 7, 0}}));
    EXPECT_TRUE(settled());
    EXPECT_TRUE(is_free(0));
    EXPECT_EQ(who.deregister(), NETCM_SUCCESS);
}

TEST_F(Close, a_call_that_is_still_rising_can_be_closed) {
    User& who = registered(0);
    EXPECT_EQ(who.open(7), NETCM_SUCCESS);
    EXPECT_EQ(who.close(7), NETCM_SUCCESS);
    ASSERT_TRUE(events::wait_for(1));
    EXPECT_TRUE(settled());
    EXPECT_TRUE(is_free(0));
}

// Somebody else stays.

TEST_F(Close, one_of_two_threads_is_answered_locally) {
    User& who = up();
    join(registered(1), 7);
    events::clear();
    trace::clear();
    EXPECT_EQ(who.close(7), NETCM_SUCCESS);
    ASSERT_TRUE(events::wait_for(1));
    EXPECT_TRUE(trace::wait_for("__stop_conn_thread.. Close the thread \n"));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 7, 0}}));
    const Event event = events::all().at(0);
    EXPECT_NE(event.thread, receiver_tid());
    EXPECT_NE(event.thread, who.tid());
    EXPECT_TRUE(event.mutex_was_held);
    EXPECT_EQ(count_unanswered(kStop), 0u);
    const NetCMCallInfo stored = call(0);
    EXPECT_EQ(stored.IsActive, 1);
    EXPECT_EQ(stored.CallState, 0u);
    EXPECT_EQ(stored.ThreadProf[0].ThreadIndex, -1);
    EXPECT_EQ(stored.ThreadProf[1].ThreadIndex, 1);
    EXPECT_TRUE(traced_in_order({{0, "More than one thread uses this call: count = 2 \n"}}));
    EXPECT_TRUE(trace::wait_for_prefix("Local thread to send close response created, ID = "));
}

TEST_F(Close, the_local_answer_comes_after_the_close_has_returned) {
    User& who = up();
    join(registered(1), 7);
    events::clear();
    who.run([] {
        pthread_mutex_lock(&NetCMAppMutex);
        EXPECT_EQ(NetCMConnectionClose(7), NETCM_SUCCESS);
        EXPECT_TRUE(trace::wait_for_prefix("In __stop_conn_thread"));
        EXPECT_EQ(events::count(), 0u);
        pthread_mutex_unlock(&NetCMAppMutex);
    });
    EXPECT_TRUE(events::wait_for(1));
}

TEST_F(Close, the_second_of_two_stops_the_call) {
    User& who = up();
    User& other = registered(1);
    join(other, 7);
    events::clear();
    EXPECT_EQ(who.close(7), NETCM_SUCCESS);
    ASSERT_TRUE(trace::wait_for("__stop_conn_thread.. Close the thread \n"));
    EXPECT_EQ(other.close(7), NETCM_SUCCESS);
    ASSERT_TRUE(events::wait_for(2));
    EXPECT_EQ(told(),
              (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 7, 0}, {1, NETCM_EVENT_CLOSE_RSP, 7, 0}}));
    EXPECT_EQ(count_unanswered(kStop), 1u);
    EXPECT_TRUE(settled());
    EXPECT_TRUE(is_free(0));
}

TEST_F(Close, one_of_two_profiles_of_a_thread_is_answered_locally) {
    User& who = up();
    set_entry(0, 0, 0, {7, 8});
    EXPECT_EQ(who.close(7), NETCM_SUCCESS);
    ASSERT_TRUE(events::wait_for(1));
    EXPECT_TRUE(trace::wait_for("__stop_conn_thread.. Close the thread \n"));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 7, 0}}));
    EXPECT_EQ(count_unanswered(kStop), 0u);
    EXPECT_TRUE(traced_in_order({{0, "More than one profile uses this call. Profile count = [2]\n"}}));
    EXPECT_EQ(who.close(8), NETCM_SUCCESS);
    ASSERT_TRUE(events::wait_for(2));
    EXPECT_EQ(count_unanswered(kStop), 1u);
}

// Not to be closed.

TEST_F(Close, a_profile_that_nobody_has_opened) {
    User& who = up();
    EXPECT_EQ(who.close(8), NETCM_ERR_NOT_ACTIVE);
    EXPECT_TRUE(traced_in_order({{2, "Connection referred by profile [8] is not active\n"}}));
}

TEST_F(Close, a_profile_that_another_thread_has_opened) {
    up();
    User& other = registered(1);
    EXPECT_EQ(other.close(7), NETCM_ERR_NOT_ACTIVE);
    EXPECT_TRUE(traced_in_order({{2, "Thread info not found in call list\n"},
                                 {2, trace::text("Thread [%d] is not using this call\n", other.tid())}}));
    EXPECT_EQ(count_unanswered(kStop), 0u);
}

TEST_F(Close, a_link_that_is_broken_is_repaired_and_has_no_call_any_more) {
    User& who = up();
    break_link();
    EXPECT_EQ(who.close(7), NETCM_ERR_NOT_ACTIVE);
    EXPECT_TRUE(traced_in_order({{2, "CM server connection is broken, Re-Register with CM\n"},
                                 {2, "CM server connection is re-established\n"},
                                 {2, "Connection referred by profile [7] is not active\n"}}));
}

TEST_F(Close, a_link_that_cannot_be_repaired) {
    User& who = up();
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(who.close(7), NETCM_ERR_REREGISTER_FAILED);
    EXPECT_TRUE(traced_in_order({{2, "Failed to Re-Register with CM\n"}}));
}

TEST_F(Close, a_request_that_cannot_be_sent_leaves_the_call_closing) {
    User& who = up();
    set_last_error(5);
    calls::fail(Call::Send);
    EXPECT_EQ(who.close(7), NETCM_ERR_FAILURE);
    EXPECT_EQ(call(0).CallState, 5u);
    EXPECT_EQ(who.transport_error(), -1);
    EXPECT_EQ(who.open(7), NETCM_ERR_CALL_CLOSING);
}

TEST_F(Close, without_memory_for_the_answer_the_profile_stays) {
    User& who = up();
    join(registered(1), 7);
    set_last_error(5);
    calls::fail(Call::Malloc);
    EXPECT_EQ(who.close(7), NETCM_ERR_FAILURE);
    EXPECT_TRUE(traced_in_order({{4, "Memory can't be allocated for rsp_info\n"}}));
    EXPECT_EQ(call(0).ThreadProf[0].ProfileId[0], 7);
    EXPECT_EQ(who.transport_error(), -1);
    EXPECT_EQ(user(1).transport_error(), 5);
}

TEST_F(Close, without_a_thread_for_the_answer_the_profile_stays) {
    User& who = up();
    join(registered(1), 7);
    calls::fail(Call::ThreadCreate);
    EXPECT_EQ(who.close(7), NETCM_ERR_FAILURE);
    EXPECT_EQ(call(0).ThreadProf[0].ProfileId[0], 7);
    EXPECT_EQ(who.close(7), NETCM_SUCCESS);
    EXPECT_TRUE(trace::wait_for("__stop_conn_thread.. Close the thread \n"));
}

TEST_F(Close, without_a_thread_one_of_two_profiles_stays) {
    User& who = up();
    set_entry(0, 0, 0, {7, 8});
    calls::fail(Call::ThreadCreate);
    EXPECT_EQ(who.close(7), NETCM_ERR_FAILURE);
    EXPECT_TRUE(traced_in_order({{4, trace::text("Local thread creation failed. Error = [%d]\n", EAGAIN)}}));
    EXPECT_EQ(call(0).ThreadProf[0].ProfileId[0], 7);
}

TEST_F(Close, a_call_that_nobody_uses_is_no_parameter) {
    User& who = up();
    set_entry(0, 0, -1, {});
    EXPECT_EQ(
        with_table([&](auto& table) { return NetCMClientRemoveCall(table.ClientId, who.tid(), 0, 7, 0); }),
        NETCM_ERR_INVALID_PARAM);
}

TEST_F(Close, the_time_of_the_request_is_kept) {
    User& who = up();
    ps_call_deact_time[0] = 0;
    EXPECT_EQ(who.close(7), NETCM_SUCCESS);
    EXPECT_GT(ps_call_deact_time[0], 1e9);
}

TEST_F(Close, a_call_index_beyond_the_table_is_refused) {
    User& who = registered(0);
    bring_up(who, 7);
    for (const int32_t index : {-1, NETCM_MAX_CALLS})
        EXPECT_EQ(with_table([&](auto& table) {
                      return NetCMClientRemoveCall(table.ClientId, who.tid(), index, 7, 0);
                  }),
                  NETCM_ERR_INVALID_PARAM);
    EXPECT_EQ(count_unanswered(wire::NETCM_CLIENT_STOP_REQ), 0u);
    EXPECT_EQ(call(0).CallState, 0u);
}

// An application that has kept an index for too long.
TEST_F(Close, a_thread_index_that_does_not_use_the_call_stops_it_for_its_only_user) {
    User& who = registered(0);
    bring_up(who, 7);
    server.on(wire::NETCM_CLIENT_STOP_REQ, silence());
    for (const int32_t index : {NETCM_MAX_THREADS - 1, -1})
        EXPECT_EQ(with_table([&](auto& table) {
                      return NetCMClientRemoveCall(table.ClientId, who.tid(), 0, 7, index);
                  }),
                  NETCM_SUCCESS);
    EXPECT_EQ(count_unanswered(wire::NETCM_CLIENT_STOP_REQ), 2u);
    EXPECT_EQ(call(0).CallState, 5u);
}

}  // namespace
}  // namespace quorvel::test
