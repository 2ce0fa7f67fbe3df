// The server's answer to an open, and whom it reaches.
#include "CallTest.h"

namespace quorvel::test {
namespace {

constexpr char kUp[] = "PDP Activation is successful \n";

class StartResponse : public CallTest {
  protected:
    // Opens profile 7 as user 0, on call 0.
    User& opened() {
        User& who = registered(0);
        EXPECT_EQ(who.open(7), NETCM_SUCCESS);
        trace::clear();
        return who;
    }
};

TEST_F(StartResponse, it_reaches_every_thread_that_opened_the_profile) {
    opened();
    registered(1).open(7);
    registered(2);
    const auto watching = watch_mutex();
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 7, 0}, {1, NETCM_EVENT_OPEN_RSP, 7, 0}}));
    const std::vector<Event> events = events::all();
    ASSERT_TRUE(events[0].details && events[1].details);
    EXPECT_EQ(bytes_of(*events[0].details), bytes_of(*events[1].details));
    expect_all_on_receiver();
}

TEST_F(StartResponse, users_of_another_profile_of_the_call_are_not_told) {
    opened();
    registered(1);
    set_entry(0, 1, 1, {8});
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 7, 0}}));
    EXPECT_EQ(call(0).IsActive, 1);
}

TEST_F(StartResponse, a_profile_that_nobody_holds_still_brings_the_call_up) {
    opened();
    ASSERT_TRUE(push_and_settle(start_response(0, 99), connection_block()));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_EQ(call(0).IsActive, 1);
}

TEST_F(StartResponse, the_profile_minus_one_is_nobodys) {
    opened();
    ASSERT_TRUE(push_and_settle(start_response(0, -1), connection_block()));
    EXPECT_EQ(events::count(), 0u);
}

TEST_F(StartResponse, its_steps_are_traced_in_order) {
    opened();
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    const auto callback = reinterpret_cast<uintptr_t>(user(0).callback());
    EXPECT_TRUE(traced_in_order(
        {{2, "Received data from CM 40.. struct size = 40\n", kInternal},
         {0, "Received start response from server \n", kInternal},
         {0, "Response for the callid = 0 Profile id = 7\n", kCore},
         {2, trace::text("PS Connection Open Rsp time = %f\n", ps_call_act_time[1]), kCore},
         {2, trace::text("Total PS Call setup time = %f\n", ps_call_act_time[1] - ps_call_act_time[0]),
          kCore},
         {0, kUp, kCore},
         {0, trace::text("thread index[0] event_cb [0x%x]\n", static_cast<uint32_t>(callback)), kCore}}));
    EXPECT_GE(ps_call_act_time[1], ps_call_act_time[0]);
}

TEST_F(StartResponse, a_null_callback_is_skipped) {
    opened();
    registered(1).open(7);
    with_table([](NetCMClientAppInfo& table) { return table.ThreadInfo[0].EventCbk = nullptr; });
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 7, 0}}));
    EXPECT_TRUE(traced_in_order({{0, "thread index[0] event_cb [0x0]\n", kCore}}));
}

TEST_F(StartResponse, a_null_record_is_refused) {
    EXPECT_EQ(with_table([](auto&) { return NetCMClientProcesStartRsp(nullptr); }), NETCM_ERR_INVALID_PARAM);
    EXPECT_TRUE(traced_in_order({{5, "NULL pointer variable passed\n", kCore}}));
}

// A refused start.

TEST_F(StartResponse, a_failure_with_a_reason_hands_the_reason_out) {
    opened();
    registered(1).open(7);
    const auto watching = watch_mutex();
    ASSERT_TRUE(push_and_settle(start_response(0, 7, 21, 1234)));
    EXPECT_EQ(told(),
              (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 7, 21}, {1, NETCM_EVENT_OPEN_RSP, 7, 21}}));
    for (const Event& event : events::all())
        EXPECT_EQ(event.words, std::vector<uint32_t>{1234});
    EXPECT_TRUE(is_free(0));
    EXPECT_TRUE(traced_in_order({{2, "Reason Code  = 1234 \n", kCore},
                                 {0, "Deleted Profile [7] from the call list. Thread-profile index [0]\n"}}));
    EXPECT_FALSE(trace::contains(kUp));
    expect_all_on_receiver();
}

TEST_F(StartResponse, a_failure_with_any_other_status_has_no_data) {
    opened();
    ASSERT_TRUE(push_and_settle(start_response(0, 7, 22, 1234)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 7, 22}}));
    EXPECT_FALSE(events::all().at(0).has_data);
    EXPECT_TRUE(is_free(0));
}

TEST_F(StartResponse, a_failure_drops_everything_on_the_call) {
    opened();
    registered(1);
    set_entry(0, 0, 0, {7, 8});
    set_entry(0, 1, 1, {9});
    ASSERT_TRUE(push_and_settle(start_response(0, 7, 22)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 7, 22}}));
    EXPECT_TRUE(is_free(0));
    EXPECT_EQ(with_table([](auto&) { return NetCMCheckValidProfileId(8); }), NETCM_ERR_INVALID_PROFILE);
    EXPECT_EQ(with_table([](auto&) { return NetCMCheckValidProfileId(9); }), NETCM_ERR_INVALID_PROFILE);
}

TEST_F(StartResponse, a_failed_profile_can_be_opened_again) {
    User& who = opened();
    ASSERT_TRUE(push_and_settle(start_response(0, 7, 22)));
    EXPECT_EQ(who.open(7), NETCM_SUCCESS);
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_START_REQ), 2u);
}

// A call that the table does not hold.

TEST_F(StartResponse, an_unknown_call_is_dropped_together_with_its_block) {
    opened();
    for (const int32_t unknown : {1, 3, 4, -1, 0x7fffffff}) {
        trace::clear();
        ASSERT_TRUE(push_and_settle(start_response(unknown, 7), connection_block())) << unknown;
        EXPECT_TRUE(traced_in_order({{2, trace::text("Callid [%d] not active \n", unknown), kCore}}));
        EXPECT_FALSE(trace::contains(kUp));
    }
    EXPECT_EQ(events::count(), 0u);
    EXPECT_EQ(call(0).IsActive, 0);
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 7, 0}}));
}

TEST_F(StartResponse, a_dropped_block_that_comes_late_is_dropped_as_well) {
    opened();
    ASSERT_TRUE(server.push(start_response(2, 7)));
    ASSERT_TRUE(trace::wait_for("Callid [2] not active \n"));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_TRUE(server.push(bytes_of(connection_block())));
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    EXPECT_EQ(events::count(), 1u);
}

TEST_F(StartResponse, a_dropped_block_that_never_comes_costs_no_record) {
    opened();
    ASSERT_TRUE(server.push(start_response(2, 7)));
    ASSERT_TRUE(trace::wait_for("Callid [2] not active \n"));
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    EXPECT_EQ(events::count(), 1u);
}

TEST_F(StartResponse, a_failure_for_an_unknown_call_has_no_block_to_drop) {
    opened();
    ASSERT_TRUE(push_and_settle(start_response(2, 7, 22)));
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    EXPECT_EQ(events::count(), 1u);
}

TEST_F(StartResponse, an_unknown_call_is_an_invalid_parameter) {
    const wire::Record record = start_response(2, 7, 22);
    EXPECT_EQ(with_table([&](auto&) { return NetCMClientProcesStartRsp(&record.Code); }),
              NETCM_ERR_INVALID_PARAM);
}

// A block that cannot be read.

TEST_F(StartResponse, a_block_that_is_cut_short_tells_nobody_that_the_call_is_up) {
    opened();
    Bytes half = bytes_of(connection_block());
    half.resize(100);
    Bytes pushed = bytes_of(start_response(0, 7));
    pushed.insert(pushed.end(), half.begin(), half.end());
    ASSERT_TRUE(server.push(pushed));
    server.close_async();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_TRUE(traced_in_order({{0, kUp, kCore}, {3, "Error reading PDP Activation response\n", kCore}}));
    // What is told is that the server has gone.
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 7, 2}}));
}

TEST_F(StartResponse, a_block_that_does_not_come_in_time_leaves_the_call_rising) {
    opened();
    calls::answer_next_poll(0);
    ASSERT_TRUE(push_and_settle(start_response(0, 7)));
    EXPECT_TRUE(traced_in_order(
        {{3, "POLLing timeout  \n", kInternal}, {3, "Error reading PDP Activation response\n", kCore}}));
    EXPECT_EQ(call(0).InUse, 1);
    EXPECT_EQ(call(0).IsActive, 0);
    EXPECT_EQ(events::count(), 0u);
}

TEST_F(StartResponse, a_block_in_pieces_is_put_together) {
    User& who = registered(0);
    server.on(wire::NETCM_CLIENT_START_REQ,
              [](const Request& request) { return Answer().record(answer_record(request.command())); });
    who.open(7);
    ASSERT_TRUE(server.push(start_response(0, 7)));
    const Bytes block = bytes_of(connection_block());
    for (const std::byte byte : block)
        ASSERT_TRUE(server.push(Bytes{byte}));
    ASSERT_TRUE(settled());
    EXPECT_STREQ(events::all().at(0).details->IfaceName, "pdp0");
}

TEST_F(StartResponse, a_short_record_is_taken_as_it_is) {
    opened();
    // Code, Word1 and the profile: the call id and the status are missing, and 0.
    Bytes record = bytes_of(start_response(0, 7, 22));
    record.resize(12);
    ASSERT_TRUE(server.push(record));
    ASSERT_TRUE(trace::wait_for("Received data from CM 12.. struct size = 40\n"));
    ASSERT_TRUE(trace::wait_for(kUp));
    ASSERT_TRUE(server.push(bytes_of(connection_block())));
    ASSERT_TRUE(settled());
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 7, 0}}));
}

}  // namespace
}  // namespace quorvel::test
