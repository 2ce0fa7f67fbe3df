#include "support/ClientTest.h"

namespace quorvel::test {
namespace {

constexpr char kUnit[] = "client/CM/src/NetCMIntf";

class Registration : public ClientTest {
  protected:
    Registration() { calls::skip_sleeps(); }
    uint16_t is_registered() {
        return with_table([](const auto& t) { return t.IsRegistered; });
    }
    int32_t client_id() {
        return with_table([](const auto& t) { return t.ClientId; });
    }
    int32_t count() {
        return with_table([](const auto& t) { return t.RegCount; });
    }
};

TEST_F(Registration, begins_with_the_banner) {
    registered(0);
    EXPECT_TRUE(trace::contains_in_order(
        {"======================================\n", "\t Quorvel Library  Version:  4.0 \n", "\n",
         "\t Test Date = May 10 2010\n", "\t Test Time = 11:44:13\n",
         "======================================\n", "connect with server \n"}));
    for (const char* line :
         {"======================================\n", "\t Quorvel Library  Version:  4.0 \n", "\n",
          "\t Test Date = May 10 2010\n", "\t Test Time = 11:44:13\n"})
        EXPECT_TRUE(trace::traced(0, line, kUnit));
}

TEST_F(Registration, shows_the_banner_also_when_it_refuses) {
    EXPECT_EQ(user(0).run([] { return NetCMClientRegister(nullptr); }), NETCM_ERR_INVALID_PARAM);
    EXPECT_TRUE(trace::contains("\t Quorvel Library  Version:  4.0 \n"));
}

TEST_F(Registration, of_a_null_callback_is_refused_without_a_lock) {
    const NetCMClientAppInfo before = g_NetCMClientAppInfo;
    EXPECT_EQ(user(0).run([] { return NetCMClientRegister(nullptr); }), NETCM_ERR_INVALID_PARAM);
    EXPECT_TRUE(trace::traced(5, "Invalid callback function pointer\n", kUnit));
    EXPECT_FALSE(trace::wait_for_prefix("Thread [", std::chrono::milliseconds(0)));
    EXPECT_EQ(std::memcmp(&g_NetCMClientAppInfo, &before, sizeof before), 0);
    EXPECT_EQ(server.accepted_connections(), 0);
}

TEST_F(Registration, of_the_first_thread_sets_the_link_up) {
    User& who = registered(0);
    EXPECT_EQ(is_registered(), 1);
    EXPECT_EQ(count(), 1);
    EXPECT_EQ(client_id(), static_cast<int32_t>(server.client_id()));
    EXPECT_TRUE(with_table([&](const auto& t) {
        return t.ThreadInfo[0].ThreadId == who.tid() && t.ThreadInfo[0].EventCbk == who.callback();
    }));
    const int sync = with_table([](const auto& t) { return t.SyncSockFd; });
    EXPECT_TRUE(trace::contains_in_order(
        {trace::text("Thread [%d] trying to lock the Mutex \n", who.tid()),
         trace::text("Mutex locked by thread [%d] \n", who.tid()), "connect with server \n",
         "Success NetCMClientInit to Recovered CMServer\n",
         trace::text("Success NetCMClientInit sockfd : %d\n", sync),
         trace::text("Application has been registered successfully. Client Id = %d\n", client_id()),
         trace::text("Thread info stored at index [0] event callback [0x%x]\n",
                     static_cast<unsigned>(reinterpret_cast<uintptr_t>(who.callback()))),
         trace::text("Mutex unlocked by thread [%d] \n", who.tid())}));
}

TEST_F(Registration, of_a_second_thread_uses_the_link_that_is_there) {
    registered(0);
    trace::clear();
    User& second = registered(1);
    EXPECT_EQ(count(), 2);
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), 1u);
    EXPECT_TRUE(trace::traced(0, "\t Quorvel Library  Version:  4.0 \n"));
    EXPECT_TRUE(trace::contains("Thread has been registered successfully. App reg count = 2 \n"));
    EXPECT_TRUE(with_table([&](const auto& t) { return t.ThreadInfo[1].ThreadId == second.tid(); }));
}

TEST_F(Registration, twice_on_one_thread_gives_3) {
    User& who = registered(0);
    EXPECT_EQ(who.run([] { return NetCMClientRegister(events::callback_of(5)); }),
              NETCM_ERR_ALREADY_REGISTERED);
    EXPECT_EQ(count(), 1);
    EXPECT_TRUE(trace::contains("Client is already registered with CM\n"));
    EXPECT_TRUE(with_table([&](const auto& t) { return t.ThreadInfo[0].EventCbk == who.callback(); }));
}

TEST_F(Registration, has_room_for_16_threads_and_refuses_the_17th) {
    for (int number = 0; number < 16; ++number)
        registered(number);
    EXPECT_EQ(count(), 16);
    EXPECT_EQ(user(16).register_client(), NETCM_ERR_NO_FREE_ENTRY);
    EXPECT_TRUE(trace::contains("Client max. limit reached\n"));
    EXPECT_EQ(count(), 16);

    EXPECT_EQ(user(3).deregister(), 0u);
    EXPECT_EQ(user(16).register_client(), 0u) << "a place that was left is free";
    EXPECT_TRUE(with_table([&](const auto& t) { return t.ThreadInfo[3].ThreadId == user(16).tid(); }));
}

TEST_F(Registration, of_16_threads_at_once_makes_one_link) {
    for (int number = 0; number < 16; ++number)
        user(number);
    for (int number = 0; number < 16; ++number)
        user(number).thread().start(
            [number] { EXPECT_EQ(NetCMClientRegister(events::callback_of(number)), 0u); });
    for (int number = 0; number < 16; ++number)
        user(number).thread().wait();
    EXPECT_EQ(count(), 16);
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), 1u);
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    EXPECT_TRUE(events::wait_for(16));
}

TEST_F(Registration, without_a_server_makes_exactly_three_attempts) {
    server.stop();
    EXPECT_EQ(user(0).register_client(), NETCM_ERR_REREGISTER_RETRY_EXHAUSTED);
    EXPECT_EQ(platform::published("Sync.Noti.CMServer"), 3u);
    EXPECT_EQ(calls::sleeps(), (std::vector<unsigned>{1, 1, 1}));
    EXPECT_EQ(client_id(), -1);
    EXPECT_EQ(is_registered(), 0);
    EXPECT_TRUE(trace::contains_in_order(
        {"Failed NetCMClientInit ... so Retry : 0 \n", "Failed NetCMClientInit ... so Retry : 1 \n",
         "Failed NetCMClientInit ... so Retry : 2 \n", "Success NetCMClientInit sockfd : -1\n",
         "Unable to connect to CM server\n"}));
    EXPECT_EQ(trace::count("Success NetCMClientInit sockfd : -1\n"), 1u);
    EXPECT_TRUE(trace::traced(3, "Unable to connect to CM server\n", kUnit));
}

TEST_F(Registration, that_fails_leaves_the_table_in_its_initial_state) {
    server.on(wire::NETCM_CLIENT_REGISTER_REQ, refusal(wire::NETCM_CLIENT_REGISTER_REQ, 5));
    EXPECT_EQ(user(0).register_client(), NETCM_ERR_REREGISTER_RETRY_EXHAUSTED);
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), 3u);
    EXPECT_TRUE(with_table([](const auto& t) {
        return t.SyncSockFd == -1 && t.AsyncSockFd == -1 && t.RecvThreadId == static_cast<pthread_t>(-1) &&
               t.RegCount == 0 && t.ThreadInfo[0].ThreadId == -1 && t.ThreadInfo[0].EventCbk == nullptr;
    }));
    server.forget_scripts();
    EXPECT_EQ(user(0).register_client(), 0u);
}

TEST_F(Registration, succeeds_at_the_third_attempt) {
    server.once(wire::NETCM_CLIENT_REGISTER_REQ, hang_up());
    server.once(wire::NETCM_CLIENT_REGISTER_REQ, wrong_code(2));
    EXPECT_EQ(user(0).register_client(), 0u);
    EXPECT_TRUE(trace::contains("Failed NetCMClientInit ... so Retry : 1 \n"));
    EXPECT_FALSE(trace::contains("Failed NetCMClientInit ... so Retry : 2 \n"));
    EXPECT_TRUE(trace::contains("Success NetCMClientInit to Recovered CMServer\n"));
}

// An attempt that fails late has closed its sockets; the next one must make its own.
TEST_F(Registration, a_late_failure_does_not_spoil_the_next_attempt) {
    for (const Call call : {Call::Pipe, Call::ThreadCreate}) {
        calls::fail(call);
        User& who = registered(0);
        events::clear();
        ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
        EXPECT_TRUE(events::wait_for(1));
        EXPECT_EQ(who.deregister(), 0u);
    }
}

TEST_F(Registration, goes_on_when_the_mutex_cannot_be_locked) {
    User& who = user(0);
    calls::fail(Call::MutexLock, 1, EINVAL);
    calls::fail(Call::MutexUnlock, 1, EPERM);  // as it would, but the thread sanitizer would report it
    EXPECT_EQ(who.register_client(), 0u);
    EXPECT_TRUE(trace::traced(2, "Error locking mutex. Error = 22 \n", kUnit));
    EXPECT_TRUE(trace::traced(2, "Error unlocking mutex. Error = 1 \n", kUnit));
}

TEST_F(Registration, takes_a_deadlock_error_for_a_lock_that_is_held) {
    User& who = user(0);
    calls::fail(Call::MutexLock, 1, EDEADLK);
    calls::fail(Call::MutexUnlock, 1, EPERM);
    EXPECT_EQ(who.register_client(), 0u);
    EXPECT_TRUE(trace::traced(2, "Mutex is already locked by the same thread \n", kUnit));
}

TEST_F(Registration, is_not_changed_by_an_unlock_that_fails) {
    User& who = user(0);
    calls::before(Call::MutexLock, [] { calls::fail(Call::MutexUnlock, 1, EPERM); });
    EXPECT_EQ(who.register_client(), 0u);
    EXPECT_TRUE(trace::traced(2, "Error unlocking mutex. Error = 1 \n", kUnit));
    who.run([] { pthread_mutex_unlock(&NetCMAppMutex); });
}

TEST_F(Registration, the_four_lock_messages_share_their_line) {
    registered(0);
    const TraceLine before =
        trace::find(trace::text("Thread [%d] trying to lock the Mutex \n", user(0).tid()));
    const TraceLine locked = trace::find(trace::text("Mutex locked by thread [%d] \n", user(0).tid()));
    EXPECT_EQ(before.line, locked.line);
    EXPECT_GT(before.line, 0);
}

TEST_F(Registration, a_place_in_which_a_callback_stands_is_not_free) {
    registered(0);
    with_table([](NetCMClientAppInfo& table) {
        table.ThreadInfo[1].EventCbk = events::callback_of(5);
        return 0;
    });
    User& second = registered(1);
    EXPECT_EQ(with_table([](const NetCMClientAppInfo& table) { return table.ThreadInfo[2].ThreadId; }),
              second.tid());
    with_table([](NetCMClientAppInfo& table) {
        table.ThreadInfo[1].EventCbk = nullptr;
        return 0;
    });
}

}  // namespace
}  // namespace quorvel::test
