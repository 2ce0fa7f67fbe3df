// A server gives the id of a connection away again as soon as it has freed it, while the end of the old one
// is still to be told.
#include <cstdlib>
#include <future>
#include <map>

#include "CallTest.h"

namespace quorvel::test {
namespace {

constexpr int32_t kKilled = 22;

wire::ConnectionBlock block_with(uint8_t last) {
    wire::ConnectionBlock block = connection_block();
    block.IpAddr = ipv4(10, 1, 2, last);
    return block;
}

Bytes answer_with(const wire::Record& response, const wire::ConnectionBlock& block) {
    Bytes bytes = bytes_of(response);
    const Bytes behind = bytes_of(block);
    bytes.insert(bytes.end(), behind.begin(), behind.end());
    return bytes;
}

class ReusedId : public CallTest {
  protected:
    // What the server pushes stays in the socket until `release`: the receiver is held where it has read a
    // first record, and cannot see the rest.
    void hold_receiver() {
        pthread_mutex_lock(&NetCMAppMutex);
        ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
        ASSERT_TRUE(trace::wait_for("Received data from CM 40.. struct size = 40\n"));
        trace::clear();
    }
    static void release_receiver() { pthread_mutex_unlock(&NetCMAppMutex); }

    // User 0 with this profile on call 0, up, with an address that ends in 3.
    void one_call_up(int32_t profile) {
        bring_up(registered(0), profile);
        events::clear();
        trace::clear();
    }
    // The server answers the next start with this id, whatever it thinks is free, behind what else it sends.
    void give_id(uint32_t id, Answer before = Answer()) {
        wire::Record answer = answer_record(wire::NETCM_CLIENT_START_REQ);
        answer.CallId = id;
        server.once(wire::NETCM_CLIENT_START_REQ, before.record(answer));
    }
    // User 0's connection with profile 1 is being closed, and user 1 has its id with profile 2.
    void close_and_give_the_id_away() {
        one_call_up(1);
        registered(1);
        server.on(wire::NETCM_CLIENT_STOP_REQ, silence());
        EXPECT_EQ(user(0).close(1), NETCM_SUCCESS);
        give_id(0);
        EXPECT_EQ(user(1).open(2), NETCM_SUCCESS);
    }
    // Users 0 and 1 with the profiles 1 and 2 on call 0, whose start is refused for the first.
    void refuse_one_of_two() {
        for (const int number : {0, 1}) {
            give_id(0);
            EXPECT_EQ(registered(number).open(number + 1), NETCM_SUCCESS);
        }
        EXPECT_TRUE(push_and_settle(start_response(0, 1, 21, 5)));
    }
    uint8_t address_of(int32_t profile) {
        NetCMConnInfo info{};
        const uint32_t result = user(0).run([&] { return NetCMDeviceGetInfo(profile, &info); });
        return result == NETCM_SUCCESS ? info.IpAddr.Addr[3] : 0;
    }
    std::vector<Told> told_of_calls() {
        std::vector<Told> result = told();
        std::erase_if(result, [](const Told& one) { return one.type == NETCM_EVENT_NETWORK_STATUS_IND; });
        return result;
    }
};

TEST_F(ReusedId, a_connection_that_is_opened_behind_a_close_is_not_closing) {
    one_call_up(1);
    server.on(wire::NETCM_CLIENT_STOP_REQ, silence());
    EXPECT_EQ(user(0).close(1), NETCM_SUCCESS);
    give_id(0);
    EXPECT_EQ(user(0).open(2), NETCM_SUCCESS);
    EXPECT_EQ(call(0).CallState, 0u);
    EXPECT_EQ(call(0).IsActive, 0);
    EXPECT_EQ(address_of(2), 0) << "it has no address yet";
    EXPECT_EQ(registered(1).open(2), NETCM_SUCCESS) << "and can be joined";
    ASSERT_TRUE(push_and_settle(stop_response(0, 1)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 1, 0}}));
    events::clear();
    ASSERT_TRUE(push_and_settle(start_response(0, 2), block_with(9)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 2, 0}, {1, NETCM_EVENT_OPEN_RSP, 2, 0}}));
    EXPECT_EQ(address_of(2), 9);
}

// Those who leave at the same moment are answered by the library, and the call is stopped without users.
TEST_F(ReusedId, a_connection_without_users_keeps_what_comes_late_from_the_next) {
    one_call_up(1);
    give_id(0);
    EXPECT_EQ(user(0).open(2), NETCM_SUCCESS);
    ASSERT_TRUE(push_and_settle(start_response(0, 2), connection_block()));
    server.on(wire::NETCM_CLIENT_STOP_REQ, silence());
    {
        std::promise<void> closed;
        const std::shared_future<void> both = closed.get_future().share();
        const auto hook = trace::on_line([both](const TraceLine& line) {
            if (line.text.starts_with("In __stop_conn_thread"))
                both.wait();
        });
        EXPECT_EQ(user(0).close(1), NETCM_SUCCESS);
        EXPECT_EQ(user(0).close(2), NETCM_SUCCESS);
        closed.set_value();
        ASSERT_TRUE(server.wait_for(wire::NETCM_CLIENT_STOP_REQ, 1));
    }
    events::clear();
    // The next one has one of its profiles, too.
    for (const int32_t profile : {3, 1}) {
        give_id(0);
        EXPECT_EQ(user(0).open(profile), NETCM_SUCCESS);
    }
    for (const int32_t profile : {1, 2})
        ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_SUSPEND_IND, 0, profile)));
    EXPECT_EQ(told(), std::vector<Told>{}) << "the suspended one was the connection before";
    for (const int32_t profile : {1, 2})
        ASSERT_TRUE(push_and_settle(stop_response(0, profile)));
    EXPECT_EQ(told(), std::vector<Told>{});
    ASSERT_TRUE(push_and_settle(start_response(0, 3), block_with(9)));
    ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_SUSPEND_IND, 0, 3)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 3, 0},
                                         {0, NETCM_EVENT_SUSPEND_IND, 3, 0},
                                         {0, NETCM_EVENT_SUSPEND_IND, 1, 0}}));
}

// The end of the connection before has arrived, but is not handled, when its kill and the next one's close
// are asked for.
TEST_F(ReusedId, a_close_behind_the_kill_of_an_ended_connection_closes_the_next) {
    one_call_up(2);
    registered(1);
    registered(2);
    server.on(wire::NETCM_CLIENT_KILL_REQ, silence());
    server.on(wire::NETCM_CLIENT_STOP_REQ, silence());
    {
        std::promise<void> asked;
        const std::shared_future<void> all = asked.get_future().share();
        const auto hook = trace::on_line([all](const TraceLine& line) {
            if (line.text == "In Thread, read  data \n")
                all.wait();
        });
        ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_STOP_IND, 0, 2, 42)));
        ASSERT_TRUE(trace::wait_for("In Thread, read  data \n"));
        give_id(0);
        EXPECT_EQ(user(1).open(1), NETCM_SUCCESS);
        EXPECT_EQ(user(0).kill(2), NETCM_SUCCESS);
        EXPECT_EQ(user(1).close(1), NETCM_SUCCESS);
        EXPECT_EQ(user(2).open(1), NETCM_ERR_CALL_CLOSING);
        asked.set_value();
    }
    ASSERT_TRUE(push_and_settle(kill_response(2, 21)));
    ASSERT_TRUE(push_and_settle(stop_response(0, 1)));
    EXPECT_EQ(told(),
              (std::vector<Told>{{0, NETCM_EVENT_KILL_RSP, 2, 21}, {1, NETCM_EVENT_CLOSE_RSP, 1, 0}}));
    EXPECT_TRUE(is_free(0));
}

TEST_F(ReusedId, many_closes_and_opens_in_a_row_each_hear_their_own) {
    User& who = registered(0);
    for (int round = 0; round < 50; ++round) {
        const int32_t profile = 1 + round % 4;
        ASSERT_EQ(who.open(profile), NETCM_SUCCESS);
        ASSERT_TRUE(server.push(start_response(0, profile), connection_block()));
        ASSERT_TRUE(events::wait_for(static_cast<size_t>(2 * round + 1)));
        ASSERT_EQ(who.close(profile), NETCM_SUCCESS);
        if (round % 2 == 0)
            continue;
        ASSERT_TRUE(events::wait_for(static_cast<size_t>(2 * round + 2)));
    }
    ASSERT_TRUE(settled());
    const std::vector<Told> all = told();
    ASSERT_EQ(all.size(), 100u);
    std::map<std::pair<uint32_t, int32_t>, int> counts;
    for (const Told& one : all) {
        EXPECT_EQ(one.result, 0);
        ++counts[{one.type, one.profile}];
    }
    for (int32_t profile = 1; profile <= 4; ++profile)
        EXPECT_EQ((counts[{NETCM_EVENT_OPEN_RSP, profile}]), (counts[{NETCM_EVENT_CLOSE_RSP, profile}]));
    EXPECT_TRUE(is_free(0));
}

TEST_F(ReusedId, the_close_response_may_come_before_the_answer_to_the_start) {
    one_call_up(1);
    server.on(wire::NETCM_CLIENT_STOP_REQ, silence());
    EXPECT_EQ(user(0).close(1), NETCM_SUCCESS);
    hold_receiver();
    ASSERT_TRUE(server.push(stop_response(0, 1)));
    give_id(0);
    release_receiver();
    EXPECT_EQ(user(0).open(2), NETCM_SUCCESS);
    ASSERT_TRUE(settled());
    EXPECT_EQ(told_of_calls(), (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 1, 0}}));
    EXPECT_EQ(call(0).InUse, 1);
}

TEST_F(ReusedId, a_profile_whose_close_is_still_to_come_is_closing_wherever_its_record_is) {
    one_call_up(1);
    server.on(wire::NETCM_CLIENT_STOP_REQ, silence());
    EXPECT_EQ(user(0).close(1), NETCM_SUCCESS);
    give_id(0);
    EXPECT_EQ(user(0).open(2), NETCM_SUCCESS);
    EXPECT_EQ(user(0).open(1), NETCM_ERR_CALL_CLOSING);
    EXPECT_EQ(user(0).kill(1), NETCM_ERR_CALL_CLOSING);
    ASSERT_TRUE(push_and_settle(stop_response(0, 1)));
    give_id(1);
    EXPECT_EQ(user(0).open(1), NETCM_SUCCESS);
}

TEST_F(ReusedId, a_user_of_a_killed_call_closes_his_own_use_and_not_the_next_connection) {
    one_call_up(1);
    join(registered(1), 1);
    events::clear();
    server.on(wire::NETCM_CLIENT_KILL_REQ, silence());
    EXPECT_EQ(user(0).kill(1), NETCM_SUCCESS);
    give_id(0);
    EXPECT_EQ(user(0).open(2), NETCM_SUCCESS);
    EXPECT_EQ(user(1).close(1), NETCM_SUCCESS);
    ASSERT_TRUE(events::wait_for(1));
    EXPECT_EQ(count_unanswered(wire::NETCM_CLIENT_STOP_REQ), 0u) << "the id is another connection's";
    ASSERT_TRUE(push_and_settle(kill_response(1)));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_CLOSE_RSP, 1, 0}, {0, NETCM_EVENT_KILL_RSP, 1, 0}}));
    EXPECT_EQ(user(1).close(1), NETCM_ERR_NOT_ACTIVE);
    EXPECT_EQ(user(1).deregister(), NETCM_SUCCESS);
}

TEST_F(ReusedId, nobody_leaves_who_has_still_to_be_told_of_a_close) {
    close_and_give_the_id_away();
    EXPECT_EQ(user(0).deregister(), NETCM_ERR_ALREADY_EXISTS);
    ASSERT_TRUE(push_and_settle(stop_response(0, 1)));
    EXPECT_EQ(user(0).deregister(), NETCM_SUCCESS);
}

TEST_F(ReusedId, a_kill_ends_the_connection_that_it_was_meant_for) {
    one_call_up(1);
    join(registered(1), 1);
    events::clear();
    server.on(wire::NETCM_CLIENT_KILL_REQ, silence());
    EXPECT_EQ(user(0).kill(1), NETCM_SUCCESS);
    give_id(0);
    EXPECT_EQ(user(0).open(2), NETCM_SUCCESS);
    EXPECT_EQ(call(0).CallState, 0u);
    ASSERT_TRUE(push_and_settle(kill_response(1)));
    EXPECT_EQ(told(),
              (std::vector<Told>{{1, NETCM_EVENT_STOP_IND, 1, kKilled}, {0, NETCM_EVENT_KILL_RSP, 1, 0}}));
    events::clear();
    ASSERT_TRUE(push_and_settle(start_response(0, 2), block_with(9)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 2, 0}}));
}

TEST_F(ReusedId, the_killed_profile_opened_anew_is_another_connection) {
    for (const uint32_t id : {0u, 1u}) {
        registered(0);
        bring_up(user(0), 1);
        server.once(wire::NETCM_CLIENT_KILL_REQ, silence());
        EXPECT_EQ(user(0).kill(1), NETCM_SUCCESS);
        give_id(id);
        EXPECT_EQ(user(0).open(1), NETCM_SUCCESS);
        events::clear();
        ASSERT_TRUE(push_and_settle(kill_response(1)));
        EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_KILL_RSP, 1, 0}})) << id;
        EXPECT_EQ(call(static_cast<int32_t>(id)).InUse, 1) << id;
        EXPECT_EQ(is_free(1 - static_cast<int32_t>(id)), true) << "the old one does not stay";
        ASSERT_TRUE(push_and_settle(start_response(static_cast<int32_t>(id), 1), block_with(9)));
        EXPECT_EQ(told().back(), (Told{0, NETCM_EVENT_OPEN_RSP, 1, 0}));
        EXPECT_EQ(address_of(1), 9);
        server.stop();
        ASSERT_TRUE(wait_until_link_is_broken());
        server.start();
        EXPECT_EQ(user(0).deregister(), NETCM_SUCCESS);
        trace::clear();
    }
}

TEST_F(ReusedId, a_kill_of_nothing_ends_nothing_that_came_later) {
    registered(0);
    server.on(wire::NETCM_CLIENT_KILL_REQ, silence());
    EXPECT_EQ(user(0).kill(1), NETCM_SUCCESS);
    bring_up(user(0), 1);
    events::clear();
    ASSERT_TRUE(push_and_settle(kill_response(1)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_KILL_RSP, 1, 0}}));
    EXPECT_EQ(call(0).IsActive, 1);
}

TEST_F(ReusedId, a_suspend_or_resume_behind_a_kill_leaves_nothing_behind) {
    for (const bool resumed : {false, true}) {
        one_call_up(1);
        server.once(wire::NETCM_CLIENT_KILL_REQ, silence());
        EXPECT_EQ(user(0).kill(1), NETCM_SUCCESS);
        ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_SUSPEND_IND, 0)));
        if (resumed) {
            ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_RESUME_IND, 0)));
        }
        ASSERT_TRUE(push_and_settle(kill_response(1)));
        EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_KILL_RSP, 1, 0}}));
        EXPECT_TRUE(is_free(0));
        server.stop();
        ASSERT_TRUE(wait_until_link_is_broken());
        server.start();
        EXPECT_EQ(user(0).deregister(), NETCM_SUCCESS);
    }
}

TEST_F(ReusedId, the_other_users_of_a_killed_call_hear_of_it_although_it_was_suspended_meanwhile) {
    one_call_up(1);
    join(registered(1), 1);
    server.on(wire::NETCM_CLIENT_KILL_REQ, silence());
    EXPECT_EQ(user(0).kill(1), NETCM_SUCCESS);
    ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_SUSPEND_IND, 0)));
    EXPECT_EQ(registered(2).open(1), NETCM_ERR_CALL_CLOSING) << "it is still being killed";
    events::clear();
    ASSERT_TRUE(push_and_settle(kill_response(1)));
    EXPECT_EQ(told(),
              (std::vector<Told>{{1, NETCM_EVENT_STOP_IND, 1, kKilled}, {0, NETCM_EVENT_KILL_RSP, 1, 0}}));
    EXPECT_TRUE(is_free(0));
}

TEST_F(ReusedId, an_end_that_was_sent_before_the_id_was_given_anew_ends_the_old_connection_alone) {
    one_call_up(1);
    registered(1);
    hold_receiver();
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_STOP_IND, 0, 1, 7)));
    give_id(0);
    release_receiver();
    EXPECT_EQ(user(1).open(2), NETCM_SUCCESS);
    ASSERT_TRUE(settled());
    EXPECT_EQ(told_of_calls(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 1, 7}}));
    EXPECT_EQ(call(0).InUse, 1);
    EXPECT_EQ(call(0).IsActive, 0) << "the address was the old one's";
    events::clear();
    ASSERT_TRUE(push_and_settle(start_response(0, 2), block_with(9)));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 2, 0}}));
}

// The same while the receiver cannot get at the record: the opening thread has the mutex all the time.
TEST_F(ReusedId, what_waits_in_the_socket_is_about_whoever_had_the_id_by_then) {
    one_call_up(1);
    registered(1);
    give_id(0);
    EXPECT_EQ(user(1).run([this] {
        pthread_mutex_lock(&NetCMAppMutex);
        EXPECT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
        EXPECT_TRUE(server.push(indication(wire::NETCM_CLIENT_SUSPEND_IND, 0)));
        EXPECT_TRUE(server.push(indication(wire::NETCM_CLIENT_STOP_IND, 0, 1, 7)));
        const int32_t profile = 2;
        const uint32_t result = NetCMConnectionOpen(&profile, 1);
        pthread_mutex_unlock(&NetCMAppMutex);
        return result;
    }),
              NETCM_SUCCESS);
    ASSERT_TRUE(settled());
    EXPECT_EQ(told_of_calls(),
              (std::vector<Told>{{0, NETCM_EVENT_SUSPEND_IND, 1, 0}, {0, NETCM_EVENT_STOP_IND, 1, 7}}));
    EXPECT_EQ(call(0).InUse, 1);
    EXPECT_EQ(call(0).CallState, 0u);
    EXPECT_EQ(call(0).IsActive, 0);
    EXPECT_EQ(user(0).deregister(), NETCM_SUCCESS);
}

TEST_F(ReusedId, an_end_behind_the_answer_ends_both_profiles_of_a_shared_call) {
    one_call_up(1);
    give_id(0);
    EXPECT_EQ(registered(1).open(2), NETCM_SUCCESS);
    ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_STOP_IND, 0, 1, 7)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 1, 7}, {1, NETCM_EVENT_STOP_IND, 2, 7}}));
    EXPECT_TRUE(is_free(0));
}

TEST_F(ReusedId, a_refusal_that_waits_in_the_socket_refuses_the_old_connection_alone) {
    registered(0);
    registered(1);
    EXPECT_EQ(user(0).open(1), NETCM_SUCCESS);
    give_id(0);
    EXPECT_EQ(user(1).run([this] {
        pthread_mutex_lock(&NetCMAppMutex);
        EXPECT_TRUE(server.push(start_response(0, 1, 21, 5)));
        const int32_t profile = 2;
        const uint32_t result = NetCMConnectionOpen(&profile, 1);
        pthread_mutex_unlock(&NetCMAppMutex);
        return result;
    }),
              NETCM_SUCCESS);
    ASSERT_TRUE(settled());
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 1, 21}}));
    EXPECT_EQ(call(0).InUse, 1);
    events::clear();
    ASSERT_TRUE(push_and_settle(start_response(0, 2), block_with(9)));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 2, 0}}));
}

// The kill was asked for when the profile's connection was not known for sure to be the one that had ended.
TEST_F(ReusedId, a_kill_beside_an_unread_end_does_not_kill_the_next_connection) {
    one_call_up(1);
    registered(1);
    server.on(wire::NETCM_CLIENT_KILL_REQ, silence());
    EXPECT_EQ(user(1).run([this] {
        pthread_mutex_lock(&NetCMAppMutex);
        EXPECT_TRUE(server.push(start_response(0, 2), connection_block()));
        EXPECT_TRUE(server.push(indication(wire::NETCM_CLIENT_STOP_IND, 0, 1, 7)));
        for (const int32_t profile : {2, 3}) {
            give_id(0);
            EXPECT_EQ(NetCMConnectionOpen(&profile, 1), NETCM_SUCCESS);
        }
        const uint32_t result = NetCMConnectionKill(2);
        pthread_mutex_unlock(&NetCMAppMutex);
        return result;
    }),
              NETCM_SUCCESS);
    ASSERT_TRUE(settled());
    ASSERT_TRUE(push_and_settle(kill_response(2, 9)));
    ASSERT_TRUE(push_and_settle(start_response(0, 3), block_with(9)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 1, 7},
                                         {1, NETCM_EVENT_KILL_RSP, 2, 9},
                                         {1, NETCM_EVENT_OPEN_RSP, 3, 0}}));
    EXPECT_EQ(user(0).deregister(), NETCM_SUCCESS);
}

// User 1's profile 2 comes to user 0's call and goes again before the server's answer to it is read, and
// comes once more. What lies in the socket by then is that first answer.
class OpenedAgain : public ReusedId {
  protected:
    void opened_and_closed() {
        one_call_up(1);
        registered(1);
        give_id(0);
        EXPECT_EQ(user(1).open(2), NETCM_SUCCESS);
        EXPECT_EQ(user(1).close(2), NETCM_SUCCESS);
        ASSERT_TRUE(trace::wait_for("__stop_conn_thread.. Close the thread \n"));
        events::clear();
    }
    void open_again(const Answer& before) {
        give_id(0, before);
        EXPECT_EQ(user(1).open(2), NETCM_SUCCESS);
        ASSERT_TRUE(settled());
    }
    static bool is_answered_by_thread() {
        return trace::wait_for("ThreadPostStartEvent.. Close the thread \n");
    }
    static Bytes first_answer() { return answer_with(start_response(0, 2), block_with(5)); }
};

TEST_F(OpenedAgain, behind_the_end_of_the_connection_hears_of_the_next_one) {
    opened_and_closed();
    open_again(Answer().push(first_answer()).push(indication(wire::NETCM_CLIENT_STOP_IND, 0, 1, 7)));
    EXPECT_TRUE(is_answered_by_thread());
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 1, 7}}));
    EXPECT_EQ(call(0).IsActive, 0);
    ASSERT_TRUE(push_and_settle(start_response(0, 2), block_with(9)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 1, 7}, {1, NETCM_EVENT_OPEN_RSP, 2, 0}}));
    EXPECT_EQ(events::all().back().details->IpAddr.Addr[3], 9);
    EXPECT_EQ(user(0).deregister(), NETCM_SUCCESS);
}

TEST_F(ReusedId, a_profile_that_comes_to_a_call_together_with_its_outcome_ends_with_it) {
    one_call_up(1);
    registered(1);
    give_id(0, Answer()
                   .push(answer_with(start_response(0, 2), block_with(3)))
                   .push(indication(wire::NETCM_CLIENT_STOP_IND, 0, 1, 7)));
    EXPECT_EQ(user(1).open(2), NETCM_SUCCESS);
    ASSERT_TRUE(settled());
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 2, 0},
                                         {0, NETCM_EVENT_STOP_IND, 1, 7},
                                         {1, NETCM_EVENT_STOP_IND, 2, 7}}));
}

// User 0's connection has ended, which nobody has read yet, and is killed; both of user 1's profiles are on
// the next one with its id.
TEST_F(ReusedId, a_close_beside_an_unread_end_leaves_the_connection_to_who_shares_it) {
    one_call_up(1);
    registered(1);
    server.on(wire::NETCM_CLIENT_KILL_REQ, silence());
    const size_t stops = server.count(wire::NETCM_CLIENT_STOP_REQ);
    const auto open = [this](int32_t profile) {
        give_id(0);
        EXPECT_EQ(NetCMConnectionOpen(&profile, 1), NETCM_SUCCESS);
    };
    EXPECT_EQ(user(1).run([&] {
        pthread_mutex_lock(&NetCMAppMutex);
        EXPECT_TRUE(server.push(indication(wire::NETCM_CLIENT_STOP_IND, 0, 1, 7)));
        open(2);
        EXPECT_EQ(NetCMConnectionKill(1), NETCM_SUCCESS);
        open(3);
        const uint32_t result = NetCMConnectionClose(3);
        pthread_mutex_unlock(&NetCMAppMutex);
        return result;
    }),
              NETCM_SUCCESS);
    ASSERT_TRUE(trace::wait_for("__stop_conn_thread.. Close the thread \n"));
    ASSERT_TRUE(settled());
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 1, 7}, {1, NETCM_EVENT_CLOSE_RSP, 3, 0}}));
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_STOP_REQ), stops) << "profile 2 is still open";
    EXPECT_EQ(user(1).close(2), NETCM_SUCCESS);
    EXPECT_TRUE(eventually([&] { return server.count(wire::NETCM_CLIENT_STOP_REQ) == stops + 1; }));
}

// Both behind the unread end of the connection that had the id before.
TEST_F(ReusedId, a_connection_that_is_killed_and_closed_ends_with_the_kill) {
    one_call_up(1);
    server.on(wire::NETCM_CLIENT_KILL_REQ, silence());
    server.on(wire::NETCM_CLIENT_STOP_REQ, silence());
    EXPECT_EQ(user(0).run([this] {
        pthread_mutex_lock(&NetCMAppMutex);
        EXPECT_TRUE(server.push(indication(wire::NETCM_CLIENT_STOP_IND, 0, 1, 7)));
        for (const int32_t profile : {2, 3}) {
            give_id(0);
            EXPECT_EQ(NetCMConnectionOpen(&profile, 1), NETCM_SUCCESS);
        }
        for (const int32_t profile : {1, 2})
            EXPECT_EQ(NetCMConnectionKill(profile), NETCM_SUCCESS);
        const uint32_t result = NetCMConnectionClose(3);
        pthread_mutex_unlock(&NetCMAppMutex);
        return result;
    }),
              NETCM_SUCCESS);
    ASSERT_TRUE(push_and_settle(kill_response(1, 9)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_KILL_RSP, 1, 9}}));
    events::clear();
    ASSERT_TRUE(push_and_settle(kill_response(2)));
    // The second kill stands behind the place of the first, which is free: its own answer is told to nobody.
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 3, kKilled}}));
    EXPECT_TRUE(is_free(0));
}

// The refusal waits in the socket when two more are given the id, first one that it is meant for.
TEST_F(ReusedId, a_refusal_does_not_reach_who_was_given_the_id_behind_it) {
    one_call_up(1);
    registered(1);
    EXPECT_EQ(user(1).run([this] {
        pthread_mutex_lock(&NetCMAppMutex);
        EXPECT_TRUE(server.push(indication(wire::NETCM_CLIENT_STOP_IND, 0, 1, 7)));
        EXPECT_TRUE(server.push(start_response(0, 2, 21, 5)));
        for (const int32_t profile : {2, 3}) {
            give_id(0);
            EXPECT_EQ(NetCMConnectionOpen(&profile, 1), NETCM_SUCCESS);
        }
        pthread_mutex_unlock(&NetCMAppMutex);
        return 0;
    }),
              0);
    ASSERT_TRUE(settled());
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 1, 7}, {1, NETCM_EVENT_OPEN_RSP, 2, 21}}));
    events::clear();
    ASSERT_TRUE(push_and_settle(start_response(0, 3), block_with(9)));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 3, 0}}));
    EXPECT_EQ(user(0).deregister(), NETCM_SUCCESS);
}

// The same profile comes to the next connection, too: of its two starts the first has been refused.
TEST_F(ReusedId, a_refusal_does_not_reach_who_has_opened_the_profile_anew_behind_it) {
    registered(0);
    EXPECT_EQ(user(0).open(1), NETCM_SUCCESS);
    const auto open = [this](int32_t profile) {
        give_id(0);
        EXPECT_EQ(user(0).open(profile), NETCM_SUCCESS);
    };
    {
        // The receiver stays at the record before.
        std::promise<void> open_again;
        const std::shared_future<void> opened_again = open_again.get_future().share();
        const auto hook = trace::on_line([opened_again](const TraceLine& line) {
            if (line.text.starts_with("Received data from CM"))
                opened_again.wait();
        });
        ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
        ASSERT_TRUE(trace::wait_for("Received data from CM 40.. struct size = 40\n"));
        ASSERT_TRUE(server.push(start_response(0, 1, 21, 5)));
        open(2);
        EXPECT_EQ(user(0).close(1), NETCM_SUCCESS);
        ASSERT_TRUE(trace::wait_for("__stop_conn_thread.. Close the thread \n"));
        open(1);
        open_again.set_value();
    }
    ASSERT_TRUE(settled());
    EXPECT_EQ(told_of_calls(), (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 1, 0}}));
    events::clear();
    for (const int32_t profile : {2, 1})
        ASSERT_TRUE(push_and_settle(start_response(0, profile), block_with(9)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 2, 0}, {0, NETCM_EVENT_OPEN_RSP, 1, 0}}));
}

// The server answers the two starts of the profile once, while the second is being answered.
TEST_F(ReusedId, a_refusal_that_comes_together_with_the_answer_to_another_start_reaches_who_has_asked) {
    registered(0);
    for (const int32_t profile : {1, 2}) {
        give_id(0);
        EXPECT_EQ(user(0).open(profile), NETCM_SUCCESS);
    }
    EXPECT_EQ(user(0).close(1), NETCM_SUCCESS);
    ASSERT_TRUE(trace::wait_for("__stop_conn_thread.. Close the thread \n"));
    give_id(0, Answer().push(start_response(0, 1, 21, 5)));
    EXPECT_EQ(user(0).open(1), NETCM_SUCCESS);
    ASSERT_TRUE(push_and_settle(start_response(0, 2, 21, 5)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 1, 0},
                                         {0, NETCM_EVENT_OPEN_RSP, 1, 21},
                                         {0, NETCM_EVENT_OPEN_RSP, 2, 21}}));
    EXPECT_TRUE(is_free(0));
}

TEST_F(OpenedAgain, on_the_same_connection_is_answered_once) {
    opened_and_closed();
    open_again(Answer().push(first_answer()));
    EXPECT_TRUE(is_answered_by_thread());
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 2, 0}}));
    ASSERT_TRUE(push_and_settle(start_response(0, 2), block_with(5)));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 2, 0}}));
}

class OpenedAgainWithout : public OpenedAgain, public testing::WithParamInterface<Call> {};

INSTANTIATE_TEST_SUITE_P(Of, OpenedAgainWithout, testing::Values(Call::ThreadCreate, Call::Malloc),
                         [](const auto& of) { return of.param == Call::Malloc ? "memory" : "thread"; });

TEST_P(OpenedAgainWithout, a_thread_of_its_own_is_answered_by_the_receiver) {
    opened_and_closed();
    // The receiver's own block for the record comes first.
    calls::fail(GetParam(), GetParam() == Call::Malloc ? 2 : 1);
    open_again(Answer().push(first_answer()));
    EXPECT_TRUE(calls::has_failed(GetParam()));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 2, 0}}));
}

TEST_F(ReusedId, an_answer_that_comes_together_with_its_outcome_is_about_the_call_that_it_gives) {
    for (const uint32_t status : {0u, 21u}) {
        registered(0);
        events::clear();
        wire::Record answer = answer_record(wire::NETCM_CLIENT_START_REQ);
        // The outcome first: it waits in the socket before the id is known.
        Answer script;
        const wire::Record response = start_response(0, 3, status, 5);
        const Bytes outcome = status == 0 ? answer_with(response, connection_block()) : bytes_of(response);
        server.once(wire::NETCM_CLIENT_START_REQ, script.push(outcome).record(answer));
        EXPECT_EQ(user(0).open(3), NETCM_SUCCESS);
        ASSERT_TRUE(settled());
        EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 3, static_cast<int32_t>(status)}}));
        EXPECT_EQ(is_free(0), status != 0);
        forget_calls();
        EXPECT_EQ(user(0).deregister(), NETCM_SUCCESS);
    }
}

TEST_F(ReusedId, an_end_that_comes_together_with_the_answer_ends_the_call_that_it_gives) {
    registered(0);
    server.once(wire::NETCM_CLIENT_START_REQ, Answer()
                                                  .push(indication(wire::NETCM_CLIENT_STOP_IND, 0, 3, 7))
                                                  .record(answer_record(wire::NETCM_CLIENT_START_REQ)));
    EXPECT_EQ(user(0).open(3), NETCM_SUCCESS);
    ASSERT_TRUE(settled());
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 3, 7}}));
    EXPECT_TRUE(is_free(0));
}

TEST_F(ReusedId, a_close_response_to_a_connection_that_had_ended_closes_no_later_one) {
    one_call_up(1);
    server.on(wire::NETCM_CLIENT_STOP_REQ, silence());
    EXPECT_EQ(user(0).close(1), NETCM_SUCCESS);
    ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_STOP_IND, 0, 1, 7)));
    events::clear();
    server.once(wire::NETCM_CLIENT_START_REQ,
                Answer().push(stop_response(0, 1, 9)).record(answer_record(wire::NETCM_CLIENT_START_REQ)));
    EXPECT_EQ(user(0).open(1), NETCM_SUCCESS);
    ASSERT_TRUE(push_and_settle(start_response(0, 1), connection_block()));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 1, 0}}));
    EXPECT_EQ(call(0).InUse, 1);
}

TEST_F(ReusedId, the_profiles_of_a_refused_call_are_each_told_of_their_own_refusal) {
    refuse_one_of_two();
    EXPECT_TRUE(is_free(0));
    ASSERT_TRUE(push_and_settle(start_response(0, 2, 21, 5)));
    EXPECT_EQ(told(),
              (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 1, 21}, {1, NETCM_EVENT_OPEN_RSP, 2, 21}}));
    EXPECT_EQ(user(1).deregister(), NETCM_SUCCESS);
}

TEST_F(ReusedId, an_open_on_a_shared_call_is_answered_once) {
    one_call_up(1);
    give_id(0);
    EXPECT_EQ(user(0).open(2), NETCM_SUCCESS);
    join(registered(1), 2);
    ASSERT_TRUE(push_and_settle(start_response(0, 2), connection_block()));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 2, 0}, {0, NETCM_EVENT_OPEN_RSP, 2, 0}}));
}

TEST_F(ReusedId, a_close_response_does_not_overtake_the_librarys_own_answer_to_the_open) {
    one_call_up(1);
    registered(1);
    EXPECT_EQ(user(1).run([] {
        pthread_mutex_lock(&NetCMAppMutex);
        const int32_t profile = 1;
        const uint32_t opened = NetCMConnectionOpen(&profile, 1);
        // The thread that is to answer stands in the gate behind us; the close is answered first.
        const NetCMStartRspInfo request = {0, 0, 1, 1};
        auto* block = static_cast<NetCMStartRspInfo*>(malloc(sizeof request));
        *block = request;
        ThreadPostStopEvent(block);
        pthread_mutex_unlock(&NetCMAppMutex);
        return opened;
    }),
              NETCM_SUCCESS);
    ASSERT_TRUE(trace::wait_for("ThreadPostStartEvent.. Close the thread \n"));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 1, 0}, {1, NETCM_EVENT_CLOSE_RSP, 1, 0}}));
}

TEST_F(ReusedId, the_end_of_the_server_is_told_of_a_connection_that_is_still_being_closed) {
    close_and_give_the_id_away();
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_STOP_IND, 2, kServerGone},
                                         {0, NETCM_EVENT_STOP_IND, 1, kServerGone}}));
    EXPECT_TRUE(is_free(0));
}

TEST_F(ReusedId, who_leaves_while_the_end_of_the_server_is_told_waits_for_his_own) {
    close_and_give_the_id_away();
    uint32_t left = NETCM_SUCCESS;
    {
        const auto hook = events::during([&](const Event& event) {
            if (event.user == 1)
                left = user(0).deregister();
        });
        server.stop();
        ASSERT_TRUE(wait_until_link_is_broken());
    }
    EXPECT_EQ(left, NETCM_ERR_ALREADY_EXISTS) << "of its connection it has not been told yet";
    EXPECT_EQ(told_of_calls(), (std::vector<Told>{{1, NETCM_EVENT_STOP_IND, 2, kServerGone},
                                                  {0, NETCM_EVENT_STOP_IND, 1, kServerGone}}));
    EXPECT_EQ(user(0).deregister(), NETCM_SUCCESS);
}

// A refusal of the connection before would have come by now.
TEST_F(ReusedId, what_is_left_of_a_refused_call_is_not_in_the_way_of_the_next) {
    refuse_one_of_two();
    events::clear();
    give_id(0);
    EXPECT_EQ(user(0).open(3), NETCM_SUCCESS);
    ASSERT_TRUE(push_and_settle(start_response(0, 3), connection_block()));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 3, 0}}));
}

TEST_F(ReusedId, who_opens_a_refused_profile_anew_is_not_told_of_the_old_refusal) {
    refuse_one_of_two();
    events::clear();
    give_id(3);
    EXPECT_EQ(user(1).open(2), NETCM_SUCCESS);
    ASSERT_TRUE(push_and_settle(start_response(0, 2, 21, 5)));
    EXPECT_EQ(told(), std::vector<Told>{});
    ASSERT_TRUE(push_and_settle(start_response(3, 2), connection_block()));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 2, 0}}));
}

TEST_F(ReusedId, without_memory_for_what_is_still_to_be_told_the_open_fails) {
    one_call_up(1);
    server.on(wire::NETCM_CLIENT_STOP_REQ, silence());
    EXPECT_EQ(user(0).close(1), NETCM_SUCCESS);
    give_id(0);
    EXPECT_EQ(user(0).run([] {
        calls::fail(Call::Malloc);
        const int32_t profile = 2;
        return NetCMConnectionOpen(&profile, 1);
    }),
              NETCM_ERR_FAILURE);
    EXPECT_TRUE(calls::has_failed(Call::Malloc));
    calls::reset();
    ASSERT_TRUE(push_and_settle(stop_response(0, 1)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 1, 0}}));
    EXPECT_TRUE(is_free(0));
}

TEST_F(ReusedId, the_end_of_the_server_is_told_of_what_alone_is_left_beside_its_slot) {
    close_and_give_the_id_away();
    ASSERT_TRUE(push_and_settle(start_response(0, 2, 21, 5)));
    EXPECT_TRUE(is_free(0));
    events::clear();
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 1, kServerGone}}));
}

TEST_F(ReusedId, a_call_may_have_more_starts_than_are_noted) {
    registered(0);
    constexpr int32_t kStarts = 10;
    for (int32_t profile = 1; profile <= kStarts; ++profile) {
        give_id(0);
        EXPECT_EQ(user(0).open(profile), NETCM_SUCCESS) << profile;
    }
    std::vector<Told> all;
    for (int32_t profile = 1; profile <= kStarts; ++profile) {
        ASSERT_TRUE(push_and_settle(start_response(0, profile), connection_block()));
        all.push_back({0, NETCM_EVENT_OPEN_RSP, profile, 0});
    }
    EXPECT_EQ(told(), all);
}

TEST_F(ReusedId, who_waits_for_his_refusal_hears_of_nothing_else_and_has_nothing_to_close) {
    refuse_one_of_two();
    events::clear();
    EXPECT_EQ(user(1).close(2), NETCM_ERR_NOT_ACTIVE);
    ASSERT_TRUE(push_and_settle(start_response(0, 2), connection_block()));
    ASSERT_TRUE(push_and_settle(start_response(0, 5, 21, 5)));
    ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_SUSPEND_IND, 0, 2)));
    EXPECT_EQ(told(), std::vector<Told>{});
    ASSERT_TRUE(push_and_settle(start_response(0, 2, 21, 5)));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 2, 21}}));
}

}  // namespace
}  // namespace quorvel::test
