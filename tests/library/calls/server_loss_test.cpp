// A server that goes away in the middle of everything, and comes back.
#include <fcntl.h>

#include <atomic>
#include <chrono>

#include "CallTest.h"
#include "support/Proc.h"

namespace quorvel::test {
namespace {

class ServerLoss : public CallTest {
  protected:
    // User 0 with profile 7 and user 1 with profiles 7 and 8, on two calls, up.
    void two_calls_up() {
        bring_up(registered(0), 7);
        join(registered(1), 7);
        bring_up(user(1), 8);
        registered(2);
        events::clear();
        trace::clear();
    }
};

TEST_F(ServerLoss, every_user_of_every_call_learns_of_it_once) {
    two_calls_up();
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 7, kServerGone},
                                         {1, NETCM_EVENT_STOP_IND, 7, kServerGone},
                                         {1, NETCM_EVENT_STOP_IND, 8, kServerGone}}));
    for (const Event& event : events::all()) {
        EXPECT_FALSE(event.has_data);
        EXPECT_FALSE(event.mutex_was_held) << "whoever holds it may wait for the server that has gone";
    }
    EXPECT_TRUE(is_free(0));
    EXPECT_TRUE(is_free(1));
    EXPECT_EQ(with_table([](const auto& table) { return table.RegCount; }), 3);
    EXPECT_TRUE(traced_in_order({{2, "Quorvel connection got reset, close the thread \n", kInternal},
                                 {0, "Call exists for the callid [0] \n", kCore},
                                 {0, "Call exists for the callid [1] \n", kCore}}));
}

TEST_F(ServerLoss, the_calls_can_be_opened_anew_when_it_is_back) {
    two_calls_up();
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(user(0).open(7), NETCM_ERR_REREGISTER_FAILED);
    server.start();
    bring_up(user(0), 7);
    join(user(1), 7);
    bring_up(user(1), 8);
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), 2u);
    EXPECT_EQ(with_table([](const auto& table) { return table.ClientId; }),
              static_cast<int32_t>(server.client_id()));
}

TEST_F(ServerLoss, it_may_come_and_go_many_times) {
    two_calls_up();
    const size_t descriptors = open_descriptors().size();
    for (int round = 0; round < 20; ++round) {
        events::clear();
        trace::clear();
        server.stop();
        ASSERT_TRUE(wait_until_link_is_broken());
        ASSERT_EQ(events::count(), 3u);
        server.start();
        bring_up(user(0), 7);
        join(user(1), 7);
        bring_up(user(1), 8);
    }
    EXPECT_EQ(open_descriptors().size(), descriptors);
}

TEST_F(ServerLoss, a_request_that_waits_when_it_goes_fails_and_does_not_hang) {
    two_calls_up();
    const auto gate = std::make_shared<Gate>();
    server.once(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ, Answer().wait_at(gate).close_async().close());
    uint32_t result = 99;
    user(2).thread().start([&] {
        uint32_t status = 0;
        result = NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status);
    });
    ASSERT_TRUE(gate->is_somebody_waiting());
    gate->open();
    user(2).thread().wait();
    EXPECT_EQ(result, NETCM_ERR_FAILURE);
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(events::count(), 3u);
    EXPECT_EQ(user(2).run([&] {
        uint32_t status = 0;
        return NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status);
    }),
              NETCM_SUCCESS);
}

// The receiver tells the users without the mutex: also while a request holds it and waits.
TEST_F(ServerLoss, users_are_told_while_a_request_still_waits) {
    two_calls_up();
    const auto gate = std::make_shared<Gate>();
    server.on(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ, Answer().close_async().wait_at(gate).close());
    user(2).thread().start([&] {
        uint32_t status = 0;
        EXPECT_EQ(NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status), NETCM_ERR_FAILURE);
    });
    ASSERT_TRUE(gate->is_somebody_waiting());
    EXPECT_TRUE(events::wait_for(3));
    EXPECT_FALSE(user(2).thread().done());
    gate->open();
    user(2).thread().wait();
}

TEST_F(ServerLoss, nobody_is_killed_by_writing_to_it) {
    two_calls_up();
    server.close_sync();
    uint32_t status = 0;
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(user(0).run([&] { return NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status); }),
                  NETCM_ERR_FAILURE);
    EXPECT_EQ(user(0).close(7), NETCM_SUCCESS) << "answered locally";
    EXPECT_TRUE(events::wait_for(1));
    EXPECT_TRUE(trace::wait_for("__stop_conn_thread.. Close the thread \n"));
    EXPECT_EQ(user(1).close(8), NETCM_ERR_FAILURE);
    char byte = 0;
    NetCMTunnelData record = {.Param = 0, .RequestId = 0, .DataLength = 1, .Data = &byte};
    EXPECT_EQ(user(0).run([&] { return NetCMTunnelRequest(&record); }), NETCM_ERR_FAILURE);
}

TEST_F(ServerLoss, every_descriptor_of_the_library_is_closed_on_exec) {
    registered(0);
    break_link();
    EXPECT_EQ(user(0).open(7), NETCM_SUCCESS);
    const auto [sync, async] = with_table(
        [](const NetCMClientAppInfo& table) { return std::pair(table.SyncSockFd, table.AsyncSockFd); });
    for (const int fd : {sync, async, pipe_fds[0], pipe_fds[1]}) {
        EXPECT_GT(fd, 2);
        EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    }
    EXPECT_GT(pipe_fds[0], std::max(sync, async));
}

TEST_F(ServerLoss, a_thread_may_leave_while_the_server_is_gone) {
    two_calls_up();
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    for (const int number : {0, 1, 2})
        EXPECT_EQ(user(number).deregister(), NETCM_SUCCESS);
    server.start();
    EXPECT_EQ(user(0).register_client(), NETCM_SUCCESS);
    bring_up(user(0), 7);
}

// Not for longer than a moment: he may take his time.
TEST_F(ServerLoss, who_is_being_told_something_learns_of_it_behind_that) {
    using Clock = std::chrono::steady_clock;
    bring_up(registered(0), 7);
    registered(1);
    events::clear();
    trace::clear();
    std::atomic<Clock::time_point> first_told{Clock::time_point()};
    {
        const auto slow = events::during([&](const Event& event) {
            if (event.user == 0)
                first_told = Clock::now();
            if (event.user != 1 || event.type != NETCM_EVENT_OPEN_RSP)
                return;
            server.stop();
            EXPECT_TRUE(events::wait_for_user(0, 1));
            const size_t heard = events::of(1).size();
            if (Clock::now() - first_told.load() < std::chrono::milliseconds(100)) {
                EXPECT_EQ(heard, 1u) << "the open response, in which he is";
            }
        });
        EXPECT_EQ(user(1).open(7), NETCM_SUCCESS);
        ASSERT_TRUE(wait_until_link_is_broken());
        ASSERT_TRUE(events::wait_for(3));
    }
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 7, 0},
                                         {0, NETCM_EVENT_STOP_IND, 7, kServerGone},
                                         {1, NETCM_EVENT_STOP_IND, 7, kServerGone}}));
}

TEST_F(ServerLoss, an_entry_without_a_callback_is_passed_over) {
    two_calls_up();
    const auto set_callback = [&](NetCMEventCallback callback) {
        with_table([&](NetCMClientAppInfo& table) {
            for (NetCMThreadInfo& thread : table.ThreadInfo)
                if (thread.ThreadId == user(0).tid())
                    thread.EventCbk = callback;
            return 0;
        });
    };
    set_callback(nullptr);
    // A call of the library's lies between what is written by hand and what its receiver reads.
    NetCMConnInfo info{};
    EXPECT_EQ(user(1).run([&] { return NetCMDeviceGetInfo(7, &info); }), NETCM_SUCCESS);
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    set_callback(user(0).callback());
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_STOP_IND, 7, kServerGone},
                                         {1, NETCM_EVENT_STOP_IND, 8, kServerGone}}));
}

TEST_F(ServerLoss, who_takes_his_time_with_what_he_is_told_learns_of_it_meanwhile) {
    bring_up(registered(0), 7);
    registered(1);
    events::clear();
    trace::clear();
    {
        const auto slow = events::during([&](const Event& event) {
            if (event.user != 1 || event.type != NETCM_EVENT_OPEN_RSP)
                return;
            server.stop();
            EXPECT_TRUE(events::wait_for_user(1, 2)) << "while his callback runs";
        });
        EXPECT_EQ(user(1).open(7), NETCM_SUCCESS);
        ASSERT_TRUE(wait_until_link_is_broken());
    }
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 7, 0},
                                         {0, NETCM_EVENT_STOP_IND, 7, kServerGone},
                                         {1, NETCM_EVENT_STOP_IND, 7, kServerGone}}));
}

TEST_F(ServerLoss, who_is_still_to_be_told_of_a_later_call_cannot_leave_yet) {
    bring_up(registered(0), 7);
    bring_up(registered(1), 8);
    events::clear();
    uint32_t left = NETCM_SUCCESS;
    {
        const auto hook = events::during([&](const Event& event) {
            if (event.user == 0)
                left = user(1).deregister();
        });
        server.stop();
        ASSERT_TRUE(wait_until_link_is_broken());
    }
    EXPECT_EQ(left, NETCM_ERR_ALREADY_EXISTS);
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 7, kServerGone},
                                         {1, NETCM_EVENT_STOP_IND, 8, kServerGone}}));
    EXPECT_EQ(user(1).deregister(), NETCM_SUCCESS);
}

}  // namespace
}  // namespace quorvel::test
