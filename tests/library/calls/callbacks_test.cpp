// Callbacks that call the library again.
#include <future>

#include "CallTest.h"

namespace quorvel::test {
namespace {

class Callbacks : public CallTest {
  protected:
    // Runs in the next callback of this type, and in no other.
    static Hook<const Event&> in_next(uint32_t type, std::function<void()> body) {
        auto done = std::make_shared<std::atomic<bool>>(false);
        return events::during([=](const Event& event) {
            if (event.type == type && !done->exchange(true))
                body();
        });
    }
};

TEST_F(Callbacks, a_query_from_a_callback_is_answered) {
    User& who = registered(0);
    who.open(7);
    NetCMConnInfo info{};
    uint32_t got = 99;
    uint32_t asked = 99;
    const auto then = in_next(NETCM_EVENT_OPEN_RSP, [&] {
        got = NetCMDeviceGetInfo(7, &info);
        uint32_t status = 0;
        asked = NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status);
    });
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    EXPECT_EQ(got, NETCM_SUCCESS);
    EXPECT_STREQ(info.IfaceName, "pdp0");
    EXPECT_EQ(asked, NETCM_SUCCESS);
}

// The receiver is no registered thread: what belongs to a thread is refused there, as it is on any other.
TEST_F(Callbacks, open_and_close_are_for_registered_threads) {
    User& who = registered(0);
    who.open(7);
    std::vector<uint32_t> results;
    const auto then = in_next(NETCM_EVENT_OPEN_RSP, [&] {
        const int32_t profile = 8;
        results = {NetCMConnectionOpen(&profile, 1), NetCMConnectionClose(7), NetCMConnectionKill(7),
                   NetCMClientDeRegister()};
    });
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    EXPECT_THAT(results, ::testing::Each(NETCM_ERR_NOT_REGISTERED));
    EXPECT_EQ(call(0).IsActive, 1);
}

TEST_F(Callbacks, a_callback_may_register_its_own_thread_and_open_and_close) {
    User& who = registered(0);
    who.open(7);
    std::vector<uint32_t> results;
    const auto at_first = in_next(NETCM_EVENT_OPEN_RSP, [&] {
        const int32_t profile = 8;
        results.push_back(NetCMClientRegister(events::callback_of(5)));
        results.push_back(NetCMConnectionOpen(&profile, 1));
    });
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    EXPECT_THAT(results, ::testing::ElementsAre(0, 0));
    const auto at_second = in_next(NETCM_EVENT_OPEN_RSP, [&] { results.push_back(NetCMConnectionClose(8)); });
    ASSERT_TRUE(push_and_settle(start_response(1, 8), connection_block()));
    ASSERT_TRUE(events::wait_for_user(5, 2));
    EXPECT_EQ(results.back(), NETCM_SUCCESS);
    EXPECT_EQ(events::of(5).at(1).type, NETCM_EVENT_CLOSE_RSP);
    const auto at_last =
        in_next(NETCM_EVENT_NETWORK_STATUS_IND, [&] { results.push_back(NetCMClientDeRegister()); });
    ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    EXPECT_EQ(results.back(), NETCM_SUCCESS);
}

// Its place among the call's users lies before those who are just being told.
TEST_F(Callbacks, a_callback_that_joins_what_its_event_tells_is_answered) {
    User& who = registered(0);
    who.open(7);
    const auto open_here = [](int32_t profile) { return NetCMConnectionOpen(&profile, 1); };
    std::vector<uint32_t> results;
    {
        const auto then = in_next(NETCM_EVENT_OPEN_RSP, [&] {
            results = {NetCMClientRegister(events::callback_of(5)), open_here(7)};
        });
        ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
        ASSERT_TRUE(events::wait_for_user(5, 1));
    }
    User& second = registered(1);
    User& third = registered(2);
    // The response has arrived when the answer is read, and is handled when both have opened.
    Bytes response = bytes_of(start_response(0, 8));
    const Bytes block = bytes_of(connection_block());
    response.insert(response.end(), block.begin(), block.end());
    server.once(wire::NETCM_CLIENT_START_REQ,
                Answer().push(response).record(answer_record(wire::NETCM_CLIENT_START_REQ)));
    {
        const auto then = in_next(NETCM_EVENT_OPEN_RSP, [&] { results.push_back(open_here(8)); });
        std::promise<void> opened;
        const std::shared_future<void> both = opened.get_future().share();
        const auto hook = trace::on_line([both](const TraceLine& line) {
            if (line.text == "In Thread, read  data \n")
                both.wait();
        });
        EXPECT_EQ(second.open(8), NETCM_SUCCESS);
        EXPECT_EQ(third.open(8), NETCM_SUCCESS);
        opened.set_value();
        ASSERT_TRUE(events::wait_for_user(5, 2));
    }
    ASSERT_TRUE(settled());
    EXPECT_THAT(results, ::testing::ElementsAre(0, 0, 0));
    EXPECT_EQ(events::of(5).size(), 2u) << "once";
    EXPECT_EQ(events::of(5).at(1).type, NETCM_EVENT_OPEN_RSP);
    EXPECT_EQ(events::of(5).at(1).profile, 8);
    const auto at_last = in_next(NETCM_EVENT_NETWORK_STATUS_IND, [&] {
        for (const int32_t profile : {7, 8})
            results.push_back(NetCMConnectionClose(profile));
    });
    ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    ASSERT_TRUE(events::wait_for_user(5, 5));
    const auto at_end =
        in_next(NETCM_EVENT_NETWORK_STATUS_IND, [&] { results.push_back(NetCMClientDeRegister()); });
    ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    EXPECT_THAT(results, ::testing::Each(NETCM_SUCCESS));
}

TEST_F(Callbacks, another_thread_of_the_application_waits_for_the_callback) {
    User& who = registered(0);
    User& other = registered(1);
    who.open(7);
    uint32_t status = 0;
    const auto then = in_next(NETCM_EVENT_OPEN_RSP, [&] {
        other.thread().start([&] { NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status); });
        EXPECT_TRUE(trace::wait_for("Request to get network status\n"));
        EXPECT_FALSE(other.thread().done(std::chrono::milliseconds(20)));
    });
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    other.thread().wait();
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ), 1u);
}

// A callback that takes a user out of the call while the others are being told.
TEST_F(Callbacks, a_user_that_leaves_during_the_delivery_is_not_told_any_more) {
    bring_up(registered(0), 7);
    join(registered(1), 7);
    join(registered(2), 7);
    events::clear();
    const auto then = in_next(NETCM_EVENT_SUSPEND_IND,
                              [] { g_NetCMClientAppInfo.CallInfo[0].ThreadProf[1].ThreadIndex = -1; });
    ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_SUSPEND_IND, 0)));
    EXPECT_EQ(told(),
              (std::vector<Told>{{0, NETCM_EVENT_SUSPEND_IND, 7, 0}, {2, NETCM_EVENT_SUSPEND_IND, 7, 0}}));
}

TEST_F(Callbacks, what_a_callback_writes_into_its_event_is_not_seen_by_the_next) {
    static const auto scribble = [](NetCMEvent* event) {
        events::callback_of(3)(event);
        *event = {99, 99, 99, nullptr};
    };
    User& first = user(0);
    EXPECT_EQ(first.run([] { return NetCMClientRegister(scribble); }), NETCM_SUCCESS);
    User& second = registered(1);
    first.open(7);
    second.open(7);
    ASSERT_TRUE(push_and_settle(start_response(0, 7), connection_block()));
    EXPECT_EQ(told(), (std::vector<Told>{{3, NETCM_EVENT_OPEN_RSP, 7, 0}, {1, NETCM_EVENT_OPEN_RSP, 7, 0}}));
    EXPECT_TRUE(events::of(1).at(0).details);
}

TEST_F(Callbacks, the_last_thread_may_leave_from_a_callback) {
    User& who = registered(0);
    who.open(7);
    // The receiver deregisters the only application thread in its name: it has its kernel id in the table.
    const auto then = in_next(NETCM_EVENT_STOP_IND, [&] {
        g_NetCMClientAppInfo.ThreadInfo[0].ThreadId = NetCMGetCurrentTid();
        NetCMClientCleanCallInfo(0);
        EXPECT_EQ(NetCMClientDeRegister(), NETCM_SUCCESS);
    });
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_STOP_IND, 0)));
    ASSERT_TRUE(trace::wait_for_prefix("Client unregistered successfully. TID = "));
    EXPECT_EQ(with_table([](const auto& table) { return table.RegCount; }), 0);
    // And the process can be registered again.
    EXPECT_EQ(who.register_client(), NETCM_SUCCESS);
    bring_up(who, 7);
}

TEST_F(Callbacks, a_local_answer_may_query_and_leave) {
    bring_up(registered(0), 7);
    User& late = registered(1);
    uint32_t asked = 99;
    const auto asking = events::during([&](const Event& event) {
        if (event.user != 1)
            return;
        NetCMConnInfo info{};
        asked = NetCMDeviceGetInfo(7, &info);
    });
    EXPECT_EQ(late.open(7), NETCM_SUCCESS);
    ASSERT_TRUE(trace::wait_for("ThreadPostStartEvent.. Close the thread \n"));
    EXPECT_EQ(asked, NETCM_SUCCESS);
}

}  // namespace
}  // namespace quorvel::test
