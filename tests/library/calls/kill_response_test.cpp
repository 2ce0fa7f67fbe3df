// The server's answer to a kill: to the users of the call first, then to those who asked.
#include "CallTest.h"

namespace quorvel::test {
namespace {

constexpr int32_t kKilled = 22;

class KillResponse : public CallTest {
  protected:
    KillResponse() { server.on(wire::NETCM_CLIENT_KILL_REQ, silence()); }

    // Users 0 to `users` - 1 with profile 7 on call 0, up.
    void up(int users) {
        bring_up(registered(0), 7);
        for (int number = 1; number < users; ++number)
            join(registered(number), 7);
        events::clear();
        trace::clear();
    }
    void set_pending(int place, int32_t tid, int32_t profile) {
        with_table([=](NetCMClientAppInfo& table) {
            table.KillReq[place] = {tid, profile};
            return 0;
        });
    }
    NetCMKillReq pending(int place) {
        return with_table([=](const NetCMClientAppInfo& table) { return table.KillReq[place]; });
    }
    bool nothing_pending() {
        for (int place = 0; place < NETCM_MAX_KILLS; ++place)
            if (pending(place).ThreadId != -1 || pending(place).ProfileId != -1)
                return false;
        return true;
    }
};

TEST_F(KillResponse, users_hear_of_the_end_before_the_killers_hear_of_their_kill) {
    up(4);
    EXPECT_EQ(user(2).kill(7), NETCM_SUCCESS);
    EXPECT_EQ(user(1).kill(7), NETCM_SUCCESS);
    const auto watching = watch_mutex();
    ASSERT_TRUE(push_and_settle(kill_response(7)));
    // The first killer's own use ended with its kill; the second only joined that kill and is a user still.
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 7, kKilled},
                                         {1, NETCM_EVENT_STOP_IND, 7, kKilled},
                                         {3, NETCM_EVENT_STOP_IND, 7, kKilled},
                                         {2, NETCM_EVENT_KILL_RSP, 7, 0},
                                         {1, NETCM_EVENT_KILL_RSP, 7, 0}}));
    for (const Event& event : events::all())
        EXPECT_FALSE(event.has_data);
    EXPECT_TRUE(is_free(0));
    EXPECT_TRUE(nothing_pending());
    expect_all_on_receiver();
}

TEST_F(KillResponse, its_steps_are_traced_in_order) {
    up(2);
    user(0).kill(7);
    trace::clear();
    ASSERT_TRUE(push_and_settle(kill_response(7)));
    EXPECT_TRUE(traced_in_order({{0, "Received kill response from server \n", kInternal},
                                 {0, "Kill rsp for profile id : 7 \n", kCore},
                                 {0, "Call ID = [0]\n"}}));
    EXPECT_FALSE(trace::contains("Profile[7] is not associated with any active call\n"));
}

TEST_F(KillResponse, every_profile_of_every_user_is_told) {
    up(2);
    set_entry(0, 1, 1, {7, 8});
    user(0).kill(7);
    ASSERT_TRUE(push_and_settle(kill_response(7)));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_STOP_IND, 7, kKilled},
                                         {1, NETCM_EVENT_STOP_IND, 8, kKilled},
                                         {0, NETCM_EVENT_KILL_RSP, 7, 0}}));
}

TEST_F(KillResponse, the_kill_of_a_calls_only_user_leaves_no_record_behind) {
    up(1);
    EXPECT_EQ(user(0).kill(7), NETCM_SUCCESS);
    EXPECT_EQ(call(0).InUse, 1);
    ASSERT_TRUE(push_and_settle(kill_response(7)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_KILL_RSP, 7, 0}}));
    EXPECT_TRUE(is_free(0));
    EXPECT_EQ(user(0).open(7), NETCM_SUCCESS);
}

// The table alone says that a kill is under way.
TEST_F(KillResponse, a_killed_call_without_users_is_cleaned_whoever_killed_it) {
    up(1);
    set_entry(0, 0, -1, {});
    set_call_state(0, 7);
    set_pending(0, user(0).tid(), 7);
    ASSERT_TRUE(push_and_settle(kill_response(7)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_KILL_RSP, 7, 0}}));
    EXPECT_TRUE(is_free(0));
}

TEST_F(KillResponse, a_killed_profile_beside_another_of_its_only_user_takes_the_call_along) {
    up(1);
    set_entry(0, 0, 0, {7, 8});
    user(0).kill(7);
    ASSERT_TRUE(push_and_settle(kill_response(7)));
    EXPECT_EQ(told(),
              (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 8, kKilled}, {0, NETCM_EVENT_KILL_RSP, 7, 0}}));
    EXPECT_TRUE(is_free(0));
}

TEST_F(KillResponse, a_failure_with_a_reason_hands_the_reason_to_the_killers) {
    up(2);
    user(0).kill(7);
    ASSERT_TRUE(push_and_settle(kill_response(7, 21, 31)));
    EXPECT_EQ(told(),
              (std::vector<Told>{{1, NETCM_EVENT_STOP_IND, 7, kKilled}, {0, NETCM_EVENT_KILL_RSP, 7, 21}}));
    EXPECT_FALSE(events::all().at(0).has_data);
    EXPECT_EQ(events::all().at(1).words, std::vector<uint32_t>{31});
}

TEST_F(KillResponse, a_failure_with_any_other_status_has_no_data) {
    up(1);
    user(0).kill(7);
    ASSERT_TRUE(push_and_settle(kill_response(7, 20, 31)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_KILL_RSP, 7, 20}}));
    EXPECT_FALSE(events::all().at(0).has_data);
}

TEST_F(KillResponse, a_call_that_nobody_asked_to_kill_is_freed_silently) {
    up(1);
    ASSERT_TRUE(push_and_settle(kill_response(7)));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_TRUE(is_free(0));
}

TEST_F(KillResponse, a_profile_without_a_call_tells_who_asked) {
    up(1);
    EXPECT_EQ(user(0).kill(99), NETCM_SUCCESS);
    ASSERT_TRUE(push_and_settle(kill_response(99)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_KILL_RSP, 99, 0}}));
    EXPECT_TRUE(traced_in_order({{2, "Profile[99] is not associated with any active call\n", kCore}}));
    EXPECT_EQ(call(0).InUse, 1);
    EXPECT_TRUE(nothing_pending());
}

// The walk over the pending kills ends at the first one that asked for something else.

TEST_F(KillResponse, a_requester_behind_a_free_place_is_not_told) {
    up(1);
    set_pending(1, user(0).tid(), 7);
    ASSERT_TRUE(push_and_settle(kill_response(7)));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_EQ(pending(1).ProfileId, 7) << "its place stays taken";
    EXPECT_TRUE(is_free(0));
}

TEST_F(KillResponse, a_requester_behind_another_profile_is_not_told) {
    up(1);
    set_pending(0, user(0).tid(), 7);
    set_pending(1, user(0).tid(), 8);
    set_pending(2, user(0).tid(), 7);
    ASSERT_TRUE(push_and_settle(kill_response(7)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_KILL_RSP, 7, 0}}));
    EXPECT_EQ(pending(0).ThreadId, -1);
    EXPECT_EQ(pending(1).ProfileId, 8);
    EXPECT_EQ(pending(2).ProfileId, 7);
}

TEST_F(KillResponse, a_requester_that_has_left_costs_the_others_nothing) {
    up(1);
    set_pending(0, 123456789, 7);
    set_pending(1, user(0).tid(), 7);
    ASSERT_TRUE(push_and_settle(kill_response(7)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_KILL_RSP, 7, 0}}));
    EXPECT_TRUE(nothing_pending());
}

TEST_F(KillResponse, a_free_place_is_nobodys_even_for_the_profile_minus_one) {
    up(1);
    ASSERT_TRUE(push_and_settle(kill_response(-1)));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_EQ(call(0).InUse, 1);
    EXPECT_TRUE(nothing_pending());
}

TEST_F(KillResponse, a_requester_without_a_callback_is_skipped) {
    up(1);
    user(0).kill(7);
    with_table([](NetCMClientAppInfo& table) { return table.ThreadInfo[0].EventCbk = nullptr; });
    ASSERT_TRUE(push_and_settle(kill_response(7)));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_TRUE(nothing_pending());
}

TEST_F(KillResponse, a_null_record_is_refused) {
    EXPECT_EQ(with_table([](auto&) { return NetCMClientProcesKillRsp(nullptr); }), NETCM_ERR_INVALID_PARAM);
    EXPECT_TRUE(traced_in_order({{5, "NULL pointer variable passed\n", kCore}}));
}

}  // namespace
}  // namespace quorvel::test
