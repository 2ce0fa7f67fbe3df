// Asking the server to tear a connection down, whoever uses it.
#include "CallTest.h"

namespace quorvel::test {
namespace {

class Kill : public CallTest {
  protected:
    Kill() { server.on(kKill, silence()); }

    // User 0 with profile 7 on call 0, up.
    User& up() {
        User& who = registered(0);
        bring_up(who, 7);
        events::clear();
        trace::clear();
        return who;
    }
    std::vector<NetCMKillReq> pending() {
        return with_table([](const NetCMClientAppInfo& table) {
            return std::vector(std::begin(table.KillReq), std::end(table.KillReq));
        });
    }
    void expect_pending(int place, int32_t tid, int32_t profile) {
        const NetCMKillReq request = pending().at(static_cast<size_t>(place));
        EXPECT_EQ(request.ThreadId, tid);
        EXPECT_EQ(request.ProfileId, profile);
    }
    void expect_nothing_pending() {
        for (int place = 0; place < NETCM_MAX_KILLS; ++place)
            expect_pending(place, -1, -1);
    }
};

TEST_F(Kill, an_id_below_1_is_refused_before_any_lock) {
    for (const int32_t id : {0, -7}) {
        trace::clear();
        EXPECT_EQ(user(0).kill(id), NETCM_ERR_INVALID_PROFILE);
        EXPECT_EQ(trace::texts(), std::vector{trace::text("Invalid profile ID = %d \n", id)});
        EXPECT_TRUE(traced_in_order({{5, trace::text("Invalid profile ID = %d \n", id)}}));
    }
    EXPECT_EQ(calls::count(Call::MutexLock), 0u);
}

TEST_F(Kill, an_unregistered_process_is_refused) {
    EXPECT_EQ(user(0).kill(7), NETCM_ERR_NOT_REGISTERED);
    EXPECT_TRUE(traced_in_order({{0, "Request to kill the connection. Profile ID = 7 \n"},
                                 {2, "Cleint is not yet registered with CM\n"}}));
}

TEST_F(Kill, an_unregistered_thread_is_refused) {
    up();
    EXPECT_EQ(user(1).kill(7), NETCM_ERR_NOT_REGISTERED);
    EXPECT_TRUE(traced_in_order({{2, "Thread info not found with CM\n"}}));
    EXPECT_EQ(count_unanswered(kKill), 0u);
}

TEST_F(Kill, the_request_is_exact_to_the_byte) {
    User& who = up();
    EXPECT_EQ(who.kill(7), NETCM_SUCCESS);
    ASSERT_TRUE(server.wait_for(kKill));
    const wire::RequestHeader expected = {8, 0, server.client_id(), 0, 7, 0};
    EXPECT_EQ(bytes_of(server.last(kKill)->header), bytes_of(expected));
}

TEST_F(Kill, its_steps_are_traced_in_order) {
    User& who = up();
    EXPECT_EQ(who.kill(7), NETCM_SUCCESS);
    EXPECT_TRUE(traced_in_order({{0, trace::text("Thread [%d] trying to lock the Mutex \n", who.tid())},
                                 {0, trace::text("Mutex locked by thread [%d] \n", who.tid())},
                                 {0, "Request to kill the connection. Profile ID = 7 \n"},
                                 {0, "Call ID = [0]\n"},
                                 {0, trace::text("Mutex unlocked by thread [%d] \n", who.tid())}}));
}

TEST_F(Kill, it_is_noted_and_ends_the_killers_own_use_at_once) {
    User& who = up();
    User& other = registered(1);
    join(other, 7);
    EXPECT_EQ(who.kill(7), NETCM_SUCCESS);
    expect_pending(0, who.tid(), 7);
    expect_pending(1, -1, -1);
    const NetCMCallInfo stored = call(0);
    EXPECT_EQ(stored.CallState, 7u);
    EXPECT_EQ(stored.ThreadProf[0].ThreadIndex, -1);
    EXPECT_EQ(stored.ThreadProf[1].ProfileId[0], 7) << "other users stay until the response";
    EXPECT_EQ(other.open(7), NETCM_ERR_CALL_CLOSING);
}

TEST_F(Kill, an_entry_with_another_profile_stays) {
    User& who = up();
    set_entry(0, 0, 0, {7, 8});
    EXPECT_EQ(who.kill(7), NETCM_SUCCESS);
    EXPECT_EQ(call(0).ThreadProf[0].ThreadIndex, 0);
    EXPECT_EQ(call(0).ThreadProf[0].ProfileId[0], -1);
    EXPECT_EQ(call(0).ThreadProf[0].ProfileId[1], 8);
}

TEST_F(Kill, the_killer_need_not_use_the_call) {
    up();
    User& other = registered(1);
    EXPECT_EQ(other.kill(7), NETCM_SUCCESS);
    EXPECT_EQ(call(0).CallState, 7u);
    EXPECT_EQ(call(0).ThreadProf[0].ProfileId[0], 7);
}

TEST_F(Kill, a_profile_without_a_call_is_killed_all_the_same) {
    User& who = up();
    EXPECT_EQ(who.kill(99), NETCM_SUCCESS);
    EXPECT_TRUE(traced_in_order({{2, "Profile [99] is not associated with any call\n"}}));
    ASSERT_TRUE(server.wait_for(kKill));
    EXPECT_EQ(server.last(kKill)->header.Arg4, 99u);
    expect_pending(0, who.tid(), 99);
    EXPECT_EQ(call(0).CallState, 0u);
}

TEST_F(Kill, the_same_thread_cannot_kill_twice) {
    User& who = up();
    EXPECT_EQ(who.kill(7), NETCM_SUCCESS);
    EXPECT_EQ(who.kill(7), NETCM_ERR_CLOSING);
    EXPECT_EQ(count_unanswered(kKill), 1u);
    expect_pending(1, -1, -1);
}

TEST_F(Kill, a_second_thread_joins_the_first_ones_kill) {
    User& who = up();
    User& other = registered(1);
    join(other, 7);
    EXPECT_EQ(who.kill(7), NETCM_SUCCESS);
    EXPECT_EQ(other.kill(7), NETCM_SUCCESS);
    EXPECT_EQ(count_unanswered(kKill), 1u);
    expect_pending(0, who.tid(), 7);
    expect_pending(1, other.tid(), 7);
    EXPECT_EQ(other.kill(7), NETCM_ERR_CLOSING);
    EXPECT_EQ(who.kill(7), NETCM_ERR_CLOSING);
}

TEST_F(Kill, a_fifth_one_has_no_place) {
    User& who = up();
    for (const int32_t profile : {11, 12, 13, 14})
        EXPECT_EQ(who.kill(profile), NETCM_SUCCESS);
    EXPECT_EQ(who.kill(15), NETCM_ERR_NO_FREE_KILL_ENTRY);
    EXPECT_EQ(who.kill(11), NETCM_ERR_CLOSING) << "found before the places are counted";
    EXPECT_EQ(registered(1).kill(11), NETCM_ERR_NO_FREE_KILL_ENTRY);
    EXPECT_EQ(count_unanswered(kKill), 4u);
}

TEST_F(Kill, a_call_that_its_last_user_closes_cannot_be_killed) {
    User& who = up();
    server.on(wire::NETCM_CLIENT_STOP_REQ, silence());
    EXPECT_EQ(who.close(7), NETCM_SUCCESS);
    EXPECT_EQ(who.kill(7), NETCM_ERR_CALL_CLOSING);
    EXPECT_TRUE(traced_in_order({{2, "Connection is already getting closed\n"}}));
    EXPECT_EQ(count_unanswered(kKill), 0u);
    expect_nothing_pending();
}

TEST_F(Kill, a_suspended_call_can_be_killed) {
    User& who = up();
    set_call_state(0, 4);
    EXPECT_EQ(who.kill(7), NETCM_SUCCESS);
    EXPECT_EQ(call(0).CallState, 7u);
}

TEST_F(Kill, a_request_that_cannot_be_sent_changes_nothing) {
    User& who = up();
    set_last_error(5);
    calls::fail(Call::Send);
    EXPECT_EQ(who.kill(7), NETCM_ERR_FAILURE);
    EXPECT_EQ(who.transport_error(), -1);
    EXPECT_EQ(call(0).CallState, 0u);
    EXPECT_EQ(call(0).ThreadProf[0].ProfileId[0], 7);
    expect_nothing_pending();
}

TEST_F(Kill, a_broken_link_is_repaired_first) {
    User& who = up();
    break_link();
    EXPECT_EQ(who.kill(7), NETCM_SUCCESS);
    EXPECT_TRUE(traced_in_order({{2, "CM server connection is re-established\n"},
                                 {2, "Profile [7] is not associated with any call\n"}}));
    ASSERT_TRUE(server.wait_for(kKill));
    EXPECT_EQ(server.last(kKill)->header.ClientId, server.client_id());
}

TEST_F(Kill, a_link_that_cannot_be_repaired) {
    User& who = up();
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(who.kill(7), NETCM_ERR_REREGISTER_FAILED);
    EXPECT_TRUE(traced_in_order({{2, "Failed to Re-Register with CM\n"}}));
    expect_nothing_pending();
}

}  // namespace
}  // namespace quorvel::test
