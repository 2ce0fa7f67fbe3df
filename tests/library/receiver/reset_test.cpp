// The server goes away.
#include "support/ClientTest.h"

namespace quorvel::test {
namespace {

constexpr char kUnit[] = "client/CM/src/NetCMClientInternal";

using ServerGone = ClientTest;

TEST_F(ServerGone, two_calls_that_are_up_get_exactly_two_stop_indications) {
    User& first = registered(0);
    User& second = registered(1);
    bring_up(first, 11);
    bring_up(second, 12);
    events::clear();
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());

    const std::vector<Event> told = events::all();
    ASSERT_EQ(told.size(), 2u);
    int user = 0;
    for (const Event& event : told) {
        EXPECT_EQ(event.user, user);
        EXPECT_EQ(event.type, NETCM_EVENT_STOP_IND);
        EXPECT_EQ(event.profile, 11 + user);
        EXPECT_EQ(event.result, 2);
        EXPECT_FALSE(event.has_data);
        EXPECT_FALSE(event.mutex_was_held) << "a thread that holds it may be waiting for the server";
        ++user;
    }
    EXPECT_EQ(trace::count("Call exists for the callid [0] \n"), 1u);
    EXPECT_EQ(trace::count("Call exists for the callid [1] \n"), 1u);
    EXPECT_TRUE(trace::traced(2, "Quorvel connection got reset, close the thread \n", kUnit));
    EXPECT_EQ(call(0).InUse, 0);
    EXPECT_EQ(call(1).InUse, 0);
}

TEST_F(ServerGone, a_call_that_is_still_coming_up_is_ended_as_well) {
    User& who = registered(0);
    EXPECT_EQ(who.open(7), 0u);
    server.close_async();
    ASSERT_TRUE(events::wait_for(1));
    EXPECT_EQ(events::all().front().type, NETCM_EVENT_STOP_IND);
    EXPECT_EQ(events::all().front().profile, 7);
    ASSERT_TRUE(wait_until_link_is_broken());
}

TEST_F(ServerGone, without_calls_nobody_is_told) {
    registered(0);
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(events::count(), 0u);
}

TEST_F(ServerGone, threads_stay_registered_and_the_next_request_repairs_the_link) {
    User& first = registered(0);
    User& second = registered(1);
    bring_up(first, 11);
    bring_up(second, 12);
    const uint32_t old_id = server.client_id();
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    server.start();
    events::clear();
    trace::clear();

    bring_up(first, 11);
    EXPECT_NE(server.client_id(), old_id);
    EXPECT_EQ(with_table([](const auto& t) { return t.RegCount; }), 2);
    EXPECT_TRUE(trace::contains_in_order({"CM server connection is broken, Re-Register with CM\n",
                                          "Re-register with CM server is success\n",
                                          "CM server connection is re-established\n"}));
    bring_up(second, 12);
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), 2u) << "one repair serves both";
    EXPECT_EQ(events::of(0).back().type, NETCM_EVENT_OPEN_RSP);
    EXPECT_EQ(events::of(1).back().type, NETCM_EVENT_OPEN_RSP);
}

TEST_F(ServerGone, the_request_that_repairs_carries_the_new_client_id) {
    User& who = registered(0);
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    server.start();
    EXPECT_EQ(who.open(3), 0u);
    EXPECT_EQ(server.last(wire::NETCM_CLIENT_START_REQ)->header.ClientId, server.client_id());
}

TEST_F(ServerGone, a_server_that_stays_away_makes_requests_fail_with_2) {
    User& who = registered(0);
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    calls::skip_sleeps();
    EXPECT_EQ(who.open(3), NETCM_ERR_REREGISTER_FAILED);
    EXPECT_TRUE(trace::contains_in_order({"CM server connection is broken, Re-Register with CM\n",
                                          "Failed to Re-register with CM server\n",
                                          "Failed to Re-Register with CM\n"}));
    server.start();
    EXPECT_EQ(who.open(3), 0u) << "and the link is repaired when it is back";
}

TEST_F(ServerGone, the_last_thread_can_leave_without_a_server) {
    User& who = registered(0);
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(who.deregister(), 0u);
}

TEST_F(ServerGone, no_memory_for_a_record_ends_the_link_the_same_way) {
    User& who = registered(0);
    bring_up(who, 5);
    events::clear();
    calls::fail(Call::Malloc);
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_SUSPEND_IND, 0)));
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_TRUE(trace::traced(4, "PANIC!!! Memory not allocated\n", kUnit));
    ASSERT_EQ(events::count(), 1u);
    EXPECT_EQ(events::all().front().result, 2);
    bring_up(who, 5);
}

TEST_F(ServerGone, a_read_error_ends_the_link_the_same_way) {
    registered(0);
    calls::fail(Call::Read, 1, EIO);
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_SUSPEND_IND, 0)));
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_TRUE(
        trace::traced(5, "Error reading sock, connection closed. Error = [Input/output error]\n", kUnit));
}

TEST_F(ServerGone, only_the_async_socket_tells_that_the_link_is_broken) {
    User& who = registered(0);
    server.close_sync();
    EXPECT_EQ(who.open(3), NETCM_ERR_FAILURE);
    EXPECT_FALSE(link_is_broken());
}

TEST_F(ServerGone, an_open_after_the_end_repairs_the_link) {
    User& who = registered(0);
    bring_up(who, 5);
    server.stop();
    server.start();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(who.open(5), 0u);
}

TEST_F(ServerGone, going_and_coming_back_again_and_again_leaves_nothing_behind) {
    User& who = registered(0);
    for (int round = 0; round < 20; ++round) {
        bring_up(who, 5);
        trace::clear();
        server.stop();
        ASSERT_TRUE(wait_until_link_is_broken());
        server.start();
    }
    EXPECT_EQ(who.open(5), 0u);
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), 21u);
}

}  // namespace
}  // namespace quorvel::test
