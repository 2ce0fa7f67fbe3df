// Closes that meet something else: another close, a stop indication, the end of the server.
#include "CallTest.h"

namespace quorvel::test {
namespace {

class CloseRace : public CallTest {};

TEST_F(CloseRace, users_that_leave_at_the_same_moment_leave_no_call_behind) {
    constexpr int kUsers = 4;
    bring_up(registered(0), 7);
    for (int number = 1; number < kUsers; ++number)
        join(registered(number), 7);
    events::clear();
    // Nobody is answered before everybody has asked: each still sees the others.
    pthread_mutex_lock(&NetCMAppMutex);
    for (int number = 0; number < kUsers; ++number)
        user(number).thread().start([] { EXPECT_EQ(NetCMConnectionClose(7), NETCM_SUCCESS); });
    pthread_mutex_unlock(&NetCMAppMutex);
    for (int number = 0; number < kUsers; ++number)
        user(number).thread().wait();
    ASSERT_TRUE(events::wait_for(kUsers));
    for (int number = 0; number < kUsers; ++number)
        EXPECT_EQ(events::of(number).size(), 1u) << number;
    ASSERT_TRUE(server.wait_for(wire::NETCM_CLIENT_STOP_REQ));
    EXPECT_TRUE(trace::wait_for_prefix("Total PS Call Teardown time"));
    EXPECT_TRUE(settled());
    EXPECT_TRUE(is_free(0));
    EXPECT_EQ(count_unanswered(wire::NETCM_CLIENT_STOP_REQ), 1u);
}

TEST_F(CloseRace, a_stop_indication_before_the_close_leaves_nothing_to_close) {
    User& who = registered(0);
    bring_up(who, 7);
    ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_STOP_IND, 0)));
    EXPECT_EQ(who.close(7), NETCM_ERR_NOT_ACTIVE);
}

TEST_F(CloseRace, a_stop_indication_behind_the_close_ends_the_call_and_the_response_is_dropped) {
    User& who = registered(0);
    bring_up(who, 7);
    events::clear();
    server.on(wire::NETCM_CLIENT_STOP_REQ,
              Answer().push(indication(wire::NETCM_CLIENT_STOP_IND, 0, 7, 9)).push(stop_response(0, 7)));
    EXPECT_EQ(who.close(7), NETCM_SUCCESS);
    ASSERT_TRUE(server.wait_for(wire::NETCM_CLIENT_STOP_REQ));
    ASSERT_TRUE(events::wait_for(1));
    EXPECT_TRUE(settled());
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 7, 9}}));
    EXPECT_TRUE(is_free(0));
}

TEST_F(CloseRace, a_stop_indication_overtakes_a_local_answer) {
    User& who = registered(0);
    bring_up(who, 7);
    join(registered(1), 7);
    events::clear();
    who.run([] {
        pthread_mutex_lock(&NetCMAppMutex);
        EXPECT_EQ(NetCMConnectionClose(7), NETCM_SUCCESS);
        EXPECT_TRUE(trace::wait_for_prefix("In __stop_conn_thread"));
        const wire::Record stop = indication(wire::NETCM_CLIENT_STOP_IND, 0, 7);
        EXPECT_EQ(NetCMClientProcesStopInd(&stop.Code), NETCM_SUCCESS);
        pthread_mutex_unlock(&NetCMAppMutex);
    });
    ASSERT_TRUE(trace::wait_for("__stop_conn_thread.. Close the thread \n"));
    EXPECT_TRUE(trace::contains("Thread index not found... never come here\n"));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 7, 0}, {1, NETCM_EVENT_STOP_IND, 7, 0}}));
    EXPECT_EQ(count_unanswered(wire::NETCM_CLIENT_STOP_REQ), 0u);
}

// Many rounds of a close and a stop indication at the same time: every round ends with exactly one of the two
// outcomes, and a free record.
TEST_F(CloseRace, a_close_and_a_stop_indication_at_once_have_one_outcome) {
    User& who = registered(0);
    for (int round = 0; round < 200; ++round) {
        const int32_t call_id = bring_up(who, 7);
        events::clear();
        uint32_t closed = 0;
        who.thread().start([&] { closed = NetCMConnectionClose(7); });
        ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_STOP_IND, call_id, 7)));
        who.thread().wait();
        ASSERT_TRUE(events::wait_for(1));
        if (closed == NETCM_SUCCESS) {
            ASSERT_TRUE(server.wait_for(wire::NETCM_CLIENT_STOP_REQ));
            ASSERT_TRUE(trace::wait_for_prefix("Total PS Call Teardown time"));
        } else {
            ASSERT_EQ(closed, NETCM_ERR_NOT_ACTIVE);
            EXPECT_EQ(events::all().at(0).type, NETCM_EVENT_STOP_IND);
        }
        ASSERT_TRUE(settled());
        ASSERT_EQ(events::count(), 1u);
        ASSERT_TRUE(is_free(call_id));
        trace::clear();
        server.stop();
        server.start();
        ASSERT_TRUE(wait_until_link_is_broken());
    }
}

}  // namespace
}  // namespace quorvel::test
