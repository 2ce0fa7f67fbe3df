// What the network does to calls, and whom it is told.
#include "CallTest.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kSuspend = wire::NETCM_CLIENT_SUSPEND_IND;
constexpr uint32_t kResume = wire::NETCM_CLIENT_RESUME_IND;
constexpr uint32_t kStopped = wire::NETCM_CLIENT_STOP_IND;
constexpr uint32_t kStatusChange = wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND;

class Indications : public CallTest {
  protected:
    // Call 0 with user 0 on profiles 7 and 8 and user 1 on profile 7, up. User 2 is registered, and has
    // profile 9 on call 1.
    void up() {
        bring_up(registered(0), 7);
        join(registered(1), 7);
        bring_up(registered(2), 9);
        set_entry(0, 0, 0, {7, -1, 8});
        events::clear();
        trace::clear();
    }
    // What everybody on call 0 is told.
    static std::vector<Told> everybody(uint32_t type, int32_t result) {
        return {{0, type, 7, result}, {0, type, 8, result}, {1, type, 7, result}};
    }
    void expect_no_data() {
        for (const Event& event : events::all())
            EXPECT_FALSE(event.has_data);
    }
    void expect_word(uint32_t word) {
        for (const Event& event : events::all())
            EXPECT_EQ(event.words, std::vector<uint32_t>{word});
    }
    template <class Processor>
    uint32_t process(Processor processor, const wire::Record& record) {
        return with_table([&](auto&) { return processor(&record.Code); });
    }
};

TEST_F(Indications, a_suspend_reaches_every_profile_of_every_thread_of_the_call) {
    up();
    const auto watching = watch_mutex();
    ASSERT_TRUE(push_and_settle(indication(kSuspend, 0)));
    EXPECT_EQ(told(), everybody(NETCM_EVENT_SUSPEND_IND, 0));
    expect_no_data();
    EXPECT_EQ(call(0).CallState, 4u);
    EXPECT_EQ(call(1).CallState, 0u);
    EXPECT_TRUE(traced_in_order({{0, "Received Suspend indication from server \n", kInternal},
                                 {0, "Call exists for the callid [0] \n", kCore}}));
    expect_all_on_receiver();
}

TEST_F(Indications, a_suspend_with_status_21_carries_a_1) {
    up();
    ASSERT_TRUE(push_and_settle(indication(kSuspend, 0, 0, 21, 99)));
    EXPECT_EQ(told(), everybody(NETCM_EVENT_SUSPEND_IND, 21));
    expect_word(1);
}

TEST_F(Indications, a_suspend_with_any_other_status_has_no_data) {
    up();
    ASSERT_TRUE(push_and_settle(indication(kSuspend, 0, 0, 20, 99)));
    EXPECT_EQ(told(), everybody(NETCM_EVENT_SUSPEND_IND, 20));
    expect_no_data();
}

TEST_F(Indications, a_resume_reaches_them_all_and_the_call_runs_again) {
    up();
    set_call_state(0, 4);
    const auto watching = watch_mutex();
    ASSERT_TRUE(push_and_settle(indication(kResume, 0)));
    EXPECT_EQ(told(), everybody(NETCM_EVENT_RESUME_IND, 0));
    expect_no_data();
    EXPECT_EQ(call(0).CallState, 3u);
    EXPECT_TRUE(traced_in_order({{0, "Received Resume indication from server \n", kInternal},
                                 {0, "Call exists for the callid [0] \n", kCore}}));
    expect_all_on_receiver();
}

TEST_F(Indications, a_resume_with_status_21_carries_a_0) {
    up();
    set_call_state(0, 4);
    ASSERT_TRUE(push_and_settle(indication(kResume, 0, 0, 21, 99)));
    EXPECT_EQ(told(), everybody(NETCM_EVENT_RESUME_IND, 21));
    expect_word(0);
}

TEST_F(Indications, a_resume_of_a_running_call_changes_nothing) {
    up();
    for (const uint32_t state : {0u, 3u, 5u, 7u}) {
        set_call_state(0, state);
        trace::clear();
        EXPECT_EQ(process(NetCMClientProcessResumeInd, indication(kResume, 0)), NETCM_ERR_FAILURE);
        EXPECT_EQ(call(0).CallState, state);
        EXPECT_TRUE(traced_in_order({{0, "Call exists for the callid [0] \n", kCore},
                                     {2, "Callid [0] not in suspend state \n", kCore}}));
    }
    EXPECT_EQ(events::count(), 0u);
}

TEST_F(Indications, a_stop_reaches_them_all_and_frees_the_call) {
    up();
    const auto watching = watch_mutex();
    ASSERT_TRUE(push_and_settle(indication(kStopped, 0, 0, 9)));
    EXPECT_EQ(told(), everybody(NETCM_EVENT_STOP_IND, 9));
    expect_no_data();
    EXPECT_TRUE(is_free(0));
    EXPECT_EQ(call(1).InUse, 1);
    EXPECT_TRUE(traced_in_order({{0, "Received stop indication from server \n", kInternal},
                                 {0, "Call exists for the callid [0] \n", kCore}}));
    expect_all_on_receiver();
}

TEST_F(Indications, a_stop_with_status_21_carries_the_reason) {
    up();
    ASSERT_TRUE(push_and_settle(indication(kStopped, 0, 0, 21, 77)));
    EXPECT_EQ(told(), everybody(NETCM_EVENT_STOP_IND, 21));
    expect_word(77);
}

TEST_F(Indications, a_status_change_reaches_every_registered_thread) {
    up();
    const auto watching = watch_mutex();
    wire::Record record{};
    record.Code = kStatusChange;
    record.Word2 = 5;
    record.CallId = 6;
    record.Status = 33;
    ASSERT_TRUE(push_and_settle(record));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_NETWORK_STATUS_IND, -1, 0},
                                         {1, NETCM_EVENT_NETWORK_STATUS_IND, -1, 0},
                                         {2, NETCM_EVENT_NETWORK_STATUS_IND, -1, 0}}));
    for (const Event& event : events::all())
        EXPECT_EQ(event.words, (std::vector<uint32_t>{5, 6}));
    const auto sent = [this](int number) {
        return Traced{0, trace::text("Sent PS state change indication to thread [%d]\n", user(number).tid()),
                      kCore};
    };
    EXPECT_TRUE(traced_in_order({{0, "Received PDP/WLAN status change indication from server \n", kInternal},
                                 sent(0),
                                 sent(1),
                                 sent(2)}));
    expect_all_on_receiver();
}

TEST_F(Indications, a_status_change_skips_a_thread_without_a_callback_and_does_not_say_so) {
    up();
    with_table([](NetCMClientAppInfo& table) { return table.ThreadInfo[1].EventCbk = nullptr; });
    ASSERT_TRUE(push_and_settle(indication(kStatusChange, 0)));
    EXPECT_EQ(events::count(), 2u);
    EXPECT_FALSE(
        trace::contains(trace::text("Sent PS state change indication to thread [%d]\n", user(1).tid())));
}

TEST_F(Indications, a_thread_without_a_callback_is_skipped_for_every_profile) {
    up();
    with_table([](NetCMClientAppInfo& table) { return table.ThreadInfo[0].EventCbk = nullptr; });
    ASSERT_TRUE(push_and_settle(indication(kSuspend, 0)));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_SUSPEND_IND, 7, 0}}));
}

TEST_F(Indications, each_for_an_unknown_call_is_dropped) {
    up();
    for (const int32_t unknown : {2, 3, 4, -1}) {
        EXPECT_EQ(process(NetCMClientProcessSuspendInd, indication(kSuspend, unknown)), NETCM_ERR_NOT_ACTIVE);
        EXPECT_EQ(process(NetCMClientProcessResumeInd, indication(kResume, unknown)), NETCM_ERR_NOT_ACTIVE);
        EXPECT_EQ(process(NetCMClientProcesStopInd, indication(kStopped, unknown)), NETCM_ERR_NOT_ACTIVE);
        EXPECT_EQ(trace::count(trace::text("Callid [%d] not active \n", unknown)), 3u);
    }
    EXPECT_EQ(events::count(), 0u);
    EXPECT_TRUE(traced_in_order({{2, "Callid [2] not active \n", kCore}}));
    EXPECT_FALSE(trace::contains("Call exists for the callid [-1] \n"));
}

TEST_F(Indications, each_succeeds_with_0) {
    up();
    EXPECT_EQ(process(NetCMClientProcessSuspendInd, indication(kSuspend, 0)), NETCM_SUCCESS);
    EXPECT_EQ(process(NetCMClientProcessResumeInd, indication(kResume, 0)), NETCM_SUCCESS);
    EXPECT_EQ(process(NetCMClientProcesStopInd, indication(kStopped, 0)), NETCM_SUCCESS);
    EXPECT_EQ(process(NetCMClientProcessNetworkStatusChangeInd, indication(kStatusChange, 0)), NETCM_SUCCESS);
}

TEST_F(Indications, each_refuses_a_null_record) {
    for (const auto processor : {NetCMClientProcessSuspendInd, NetCMClientProcessResumeInd,
                                 NetCMClientProcesStopInd, NetCMClientProcessNetworkStatusChangeInd,
                                 NetCMClientProcesIpChangeInd, NetCMClientProcessProperProfRsp}) {
        trace::clear();
        EXPECT_EQ(with_table([&](auto&) { return processor(nullptr); }), NETCM_ERR_INVALID_PARAM);
        EXPECT_TRUE(traced_in_order({{5, "NULL pointer variable passed\n", kCore}}));
    }
}

TEST_F(Indications, a_suspended_call_is_joined_and_a_killed_one_is_not) {
    up();
    User& late = registered(3);
    ASSERT_TRUE(push_and_settle(indication(kSuspend, 0)));
    join(late, 7);
    server.on(wire::NETCM_CLIENT_KILL_REQ, silence());
    EXPECT_EQ(late.kill(7), NETCM_SUCCESS);
    EXPECT_EQ(late.open(7), NETCM_ERR_CALL_CLOSING);
}

}  // namespace
}  // namespace quorvel::test
