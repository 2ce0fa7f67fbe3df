// The server's answer to the close of a call's last user.
#include <future>

#include "CallTest.h"

namespace quorvel::test {
namespace {

class StopResponse : public CallTest {
  protected:
    // Call 0 with profile 7, up, its stop request already sent; the answer is the test's.
    User& closing() {
        User& who = registered(0);
        bring_up(who, 7);
        server.on(wire::NETCM_CLIENT_STOP_REQ, silence());
        EXPECT_EQ(who.close(7), NETCM_SUCCESS);
        EXPECT_EQ(call(0).CallState, 5u);
        events::clear();
        trace::clear();
        return who;
    }
};

TEST_F(StopResponse, the_closing_thread_is_told_and_the_call_is_free) {
    closing();
    const auto watching = watch_mutex();
    ASSERT_TRUE(push_and_settle(stop_response(0, 7)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 7, 0}}));
    EXPECT_FALSE(events::all().at(0).has_data);
    EXPECT_TRUE(is_free(0));
    expect_all_on_receiver();
}

TEST_F(StopResponse, its_steps_are_traced_in_order) {
    closing();
    ASSERT_TRUE(push_and_settle(stop_response(0, 7)));
    EXPECT_TRUE(traced_in_order(
        {{0, "Received stop response from server \n", kInternal},
         {2, trace::text("PS Connection Close Rsp time = %f\n", ps_call_deact_time[1]), kCore},
         {2, trace::text("Total PS Call Teardown time = %f\n", ps_call_deact_time[1] - ps_call_deact_time[0]),
          kCore},
         {0, "Call exists for the callid [0] \n", kCore},
         {0, "Deleted Profile [7] from the call list. Thread-profile index [0]\n"}}));
    EXPECT_GE(ps_call_deact_time[1], ps_call_deact_time[0]);
}

TEST_F(StopResponse, a_failure_with_a_reason_hands_the_reason_out) {
    closing();
    ASSERT_TRUE(push_and_settle(stop_response(0, 7, 21, 88)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 7, 21}}));
    EXPECT_EQ(events::all().at(0).words, std::vector<uint32_t>{88});
    EXPECT_TRUE(is_free(0));
}

TEST_F(StopResponse, a_failure_with_any_other_status_has_no_data) {
    closing();
    ASSERT_TRUE(push_and_settle(stop_response(0, 7, 20, 88)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 7, 20}}));
    EXPECT_FALSE(events::all().at(0).has_data);
}

TEST_F(StopResponse, only_the_first_thread_that_holds_the_profile_is_told) {
    closing();
    registered(1);
    set_entry(0, 1, 1, {7});
    ASSERT_TRUE(push_and_settle(stop_response(0, 7)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 7, 0}}));
    const NetCMCallInfo stored = call(0);
    EXPECT_EQ(stored.InUse, 1);
    EXPECT_EQ(stored.ThreadProf[0].ThreadIndex, -1);
    EXPECT_EQ(stored.ThreadProf[1].ThreadIndex, 1);
    EXPECT_EQ(stored.ThreadProf[1].ProfileId[0], 7);
}

TEST_F(StopResponse, the_first_in_the_table_that_holds_it_not_the_first_in_the_table) {
    closing();
    registered(1);
    set_entry(0, 0, 0, {8});
    set_entry(0, 1, 1, {7});
    ASSERT_TRUE(push_and_settle(stop_response(0, 7)));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_CLOSE_RSP, 7, 0}}));
    EXPECT_EQ(call(0).ThreadProf[0].ThreadIndex, 0);
}

TEST_F(StopResponse, an_entry_with_another_profile_stays) {
    closing();
    set_entry(0, 0, 0, {7, 8});
    ASSERT_TRUE(push_and_settle(stop_response(0, 7)));
    const NetCMCallInfo stored = call(0);
    EXPECT_EQ(stored.InUse, 1);
    EXPECT_EQ(stored.ThreadProf[0].ProfileId[0], -1);
    EXPECT_EQ(stored.ThreadProf[0].ProfileId[1], 8);
}

TEST_F(StopResponse, a_profile_that_nobody_holds_tells_nobody_and_sweeps) {
    closing();
    set_entry(0, 0, 0, {});
    ASSERT_TRUE(push_and_settle(stop_response(0, 7)));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_TRUE(is_free(0));
}

TEST_F(StopResponse, the_profile_minus_one_is_nobodys) {
    closing();
    ASSERT_TRUE(push_and_settle(stop_response(0, -1)));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_EQ(call(0).ThreadProf[0].ProfileId[0], 7);
}

TEST_F(StopResponse, a_null_callback_is_skipped) {
    closing();
    with_table([](NetCMClientAppInfo& table) { return table.ThreadInfo[0].EventCbk = nullptr; });
    ASSERT_TRUE(push_and_settle(stop_response(0, 7)));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_TRUE(is_free(0));
}

TEST_F(StopResponse, an_unknown_call_is_dropped) {
    closing();
    ASSERT_TRUE(push_and_settle(stop_response(3, 7)));
    EXPECT_TRUE(traced_in_order({{2, "Callid [3] not active \n", kCore}}));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_EQ(call(0).InUse, 1);
    const wire::Record record = stop_response(3, 7);
    EXPECT_EQ(with_table([&](auto&) { return NetCMClientProcesStopRsp(&record.Code); }),
              NETCM_ERR_INVALID_PARAM);
}

TEST_F(StopResponse, a_null_record_is_refused_without_a_word) {
    EXPECT_EQ(with_table([](auto&) { return NetCMClientProcesStopRsp(nullptr); }), NETCM_ERR_INVALID_PARAM);
    EXPECT_FALSE(trace::contains("NULL pointer variable passed\n"));
}

TEST_F(StopResponse, to_who_joined_a_moment_ago_the_open_is_answered_first) {
    bring_up(registered(0), 7);
    registered(1);
    events::clear();
    trace::clear();
    {
        std::promise<void> stopped;
        const std::shared_future<void> end = stopped.get_future().share();
        const auto hook = trace::on_line([end](const TraceLine& line) {
            if (line.text.starts_with("In __start_conn_thread"))
                end.wait();
        });
        EXPECT_EQ(user(1).open(7), NETCM_SUCCESS);
        EXPECT_EQ(user(0).close(7), NETCM_SUCCESS);
        ASSERT_TRUE(events::wait_for(1));
        ASSERT_TRUE(push_and_settle(stop_response(0, 7)));
        stopped.set_value();
        ASSERT_TRUE(trace::wait_for("ThreadPostStartEvent.. Close the thread \n"));
    }
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 7, 0},
                                         {1, NETCM_EVENT_OPEN_RSP, 7, 0},
                                         {1, NETCM_EVENT_CLOSE_RSP, 7, 0}}));
    EXPECT_TRUE(events::all().at(1).details.has_value());
    EXPECT_TRUE(is_free(0));
}

}  // namespace
}  // namespace quorvel::test
