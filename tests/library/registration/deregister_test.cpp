#include <atomic>

#include "support/ClientTest.h"
#include "support/Proc.h"

namespace quorvel::test {
namespace {

using Deregistration = ClientTest;
using DeregistrationSlow = ClientTest;

TEST_F(Deregistration, without_any_registration_gives_6) {
    EXPECT_EQ(user(0).deregister(), NETCM_ERR_NOT_REGISTERED);
    EXPECT_TRUE(
        trace::contains_in_order({"Unregister Request from client = -1 \n", "Client Not Registered \n"}));
}

TEST_F(Deregistration, of_a_thread_that_never_registered_gives_6) {
    registered(0);
    EXPECT_EQ(user(1).deregister(), NETCM_ERR_NOT_REGISTERED);
    EXPECT_EQ(with_table([](const auto& t) { return t.RegCount; }), 1);
}

TEST_F(Deregistration, twice_gives_6) {
    User& who = registered(0);
    registered(1);
    EXPECT_EQ(who.deregister(), 0u);
    EXPECT_EQ(who.deregister(), NETCM_ERR_NOT_REGISTERED);
}

TEST_F(Deregistration, of_one_of_two_keeps_the_link) {
    User& first = registered(0);
    User& second = registered(1);
    with_table([](NetCMClientAppInfo& t) { return t.ThreadInfo[0].LastSyncError = 33; });
    trace::clear();
    EXPECT_EQ(first.deregister(), 0u);
    EXPECT_TRUE(trace::contains_in_order(
        {trace::text("Unregister Request from client = %d \n", static_cast<int>(server.client_id())),
         "Registration count = 2 \n",
         trace::text("Client unregistered successfully. TID = %d\n", first.tid()), "Thread index = 0\n"}));
    EXPECT_TRUE(with_table([](const auto& t) {
        return t.RegCount == 1 && t.IsRegistered == 1 && t.ThreadInfo[0].ThreadId == -1 &&
               t.ThreadInfo[0].EventCbk == nullptr && t.ThreadInfo[0].LastSyncError == 33;
    }));
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    ASSERT_TRUE(events::wait_for_user(1, 1));
    EXPECT_TRUE(events::of(0).empty()) << "who has left is told nothing";
    EXPECT_EQ(second.deregister(), 0u);
}

TEST_F(Deregistration, of_the_last_thread_ends_the_link_and_resets_the_table) {
    User& who = registered(0);
    trace::clear();
    EXPECT_EQ(who.deregister(), 0u);
    EXPECT_TRUE(trace::contains_in_order(
        {"Registration count = 1 \n",
         "Quorvel client deregistration is detected. Close the async recv thread \n",
         trace::text("Client unregistered successfully. TID = %d\n", who.tid()), "Thread index = 0\n"}));
    EXPECT_TRUE(with_table([](const auto& t) {
        return t.IsRegistered == 0 && t.ClientId == -1 && t.RegCount == 0 && t.SyncSockFd == -1 &&
               t.AsyncSockFd == -1 && t.RecvThreadId == static_cast<pthread_t>(-1) &&
               t.ThreadInfo[0].ThreadId == -1;
    }));
}

TEST_F(Deregistration, is_followed_by_a_new_link_with_a_new_id) {
    registered(0);
    const uint32_t old_id = server.client_id();
    EXPECT_EQ(user(0).deregister(), 0u);
    registered(0);
    EXPECT_NE(server.client_id(), old_id);
    EXPECT_EQ(with_table([](const auto& t) { return t.ClientId; }), static_cast<int32_t>(server.client_id()));
}

TEST_F(Deregistration, of_a_thread_that_uses_a_call_gives_10) {
    User& who = registered(0);
    bring_up(who, 7);
    EXPECT_EQ(who.deregister(), NETCM_ERR_ALREADY_EXISTS);
    EXPECT_TRUE(trace::contains(
        trace::text("Thread [%d] is associated with a active call, Thread index = 0 \n", who.tid())));
    EXPECT_EQ(with_table([](const auto& t) { return t.RegCount; }), 1);
    EXPECT_EQ(who.open(7), NETCM_ERR_ALREADY_EXISTS) << "the call is still his";
}

TEST_F(Deregistration, of_a_thread_is_not_held_up_by_the_calls_of_others) {
    User& first = registered(0);
    User& second = registered(1);
    bring_up(first, 7);
    EXPECT_EQ(second.deregister(), 0u);
}

TEST_F(Deregistration, from_a_callback_does_not_hang) {
    registered(0);
    std::atomic<uint32_t> result{99};
    const auto leaving = events::during([&](const Event&) { result = NetCMClientDeRegister(); });
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    ASSERT_TRUE(eventually([&] { return result != 99; }));
    EXPECT_EQ(result, static_cast<uint32_t>(NETCM_ERR_NOT_REGISTERED))
        << "the receiver is no registered thread";
}

// The receiver thread may register itself in a callback, and be the last to leave.
TEST_F(Deregistration, of_the_receiver_itself_as_the_last_thread_does_not_hang) {
    User& who = registered(0);
    std::atomic<int> step{0};
    const auto stepping = events::during([&](const Event&) {
        if (step == 0)
            EXPECT_EQ(NetCMClientRegister(events::callback_of(5)), 0u);
        else
            EXPECT_EQ(NetCMClientDeRegister(), 0u);
        ++step;
    });
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    ASSERT_TRUE(events::wait_for(2)) << "the new one is told as well";
    ASSERT_TRUE(eventually([&] { return step == 2; }));
    EXPECT_EQ(with_table([](const auto& t) { return t.RegCount; }), 1);
    EXPECT_EQ(who.deregister(), 0u);
}

TEST_F(Deregistration, from_a_callback_by_the_only_thread_ends_the_receiver_behind_it) {
    registered(0);
    std::atomic<uint32_t> result{99};
    enum class Step { Register, Stay, Leave };
    std::atomic<Step> step{Step::Register};
    const auto stepping = events::during([&](const Event&) {
        const Step now = step.exchange(Step::Stay);
        // The only registered thread is the receiver: the user has handed over to it.
        if (now == Step::Register) {
            EXPECT_EQ(NetCMClientRegister(events::callback_of(5)), 0u);
        }
        if (now == Step::Leave)
            result = NetCMClientDeRegister();
    });
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_SUSPEND_IND, 0)));
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    ASSERT_TRUE(events::wait_for(2));
    EXPECT_EQ(user(0).deregister(), 0u);
    step = Step::Leave;
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    ASSERT_TRUE(trace::wait_for("Registration count = 1 \n"));
    ASSERT_TRUE(eventually([&] { return with_table([](const auto& t) { return t.IsRegistered; }) == 0; }));
    EXPECT_EQ(result, 0u);
    registered(0);
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    EXPECT_TRUE(events::wait_for_user(0, 2)) << "and a new registration works";
}

// The receiver has read a record and waits for the mutex, which the leaving thread holds while it joins.
TEST_F(Deregistration, never_deadlocks_with_a_record_that_has_just_been_read) {
    for (int round = 0; round < 50; ++round) {
        registered(0);
        trace::clear();
        user(0).run([&] { pthread_mutex_lock(&NetCMAppMutex); });
        ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
        ASSERT_TRUE(trace::wait_for("Received data from CM 40.. struct size = 40\n"));
        EXPECT_EQ(user(0).run([] {
            const uint32_t result = NetCMClientDeRegister();
            pthread_mutex_unlock(&NetCMAppMutex);
            return result;
        }),
                  0u);
    }
}

TEST_F(Deregistration, while_events_pour_in_is_quick_and_clean) {
    constexpr int kRounds = 30;
    for (int round = 0; round < kRounds; ++round) {
        registered(0);
        events::clear();
        std::atomic<bool> done{false};
        std::jthread storm([&] {
            const Bytes record = bytes_of(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0));
            server.wait_for_async_socket();
            for (int i = 0; i < 400 && !done; ++i)
                if (!server.try_push(record))
                    break;
        });
        ASSERT_TRUE(events::wait_for_user(0, 3));
        EXPECT_EQ(user(0).deregister(), 0u);
        done = true;
    }
    trace::clear();
}

}  // namespace
}  // namespace quorvel::test
