// Repair after the server has gone away.
#include "LinkTest.h"

namespace quorvel::test {
namespace {

class ReRegistration : public LinkTest {
  protected:
    ReRegistration() {
        table.ClientId = init() > 0 ? client_id : -1;
        server.stop();
        EXPECT_TRUE(trace::wait_for("Quorvel connection got reset, close the thread \n"));
        EXPECT_TRUE(eventually(link_is_broken));
        trace::clear();
    }
};

using ReRegistrationSlow = ReRegistration;

TEST_F(ReRegistration, a_server_that_is_back_gives_a_new_link_and_a_new_id) {
    const int32_t old_id = table.ClientId;
    server.start();
    EXPECT_EQ(NetCMClientReRegister(), 0u);
    EXPECT_NE(table.ClientId, old_id);
    EXPECT_EQ(table.ClientId, static_cast<int32_t>(server.client_id()));
    EXPECT_NE(table.RecvThreadId, kNoReceiver);
    EXPECT_TRUE(trace::traced(0, "Re-register with CM server is success\n", kUnit));
    EXPECT_TRUE(trace::traced(0, trace::text("New Sock FD : %d\n", table.SyncSockFd), kUnit));
    EXPECT_TRUE(server.push(indication(wire::NETCM_CLIENT_SUSPEND_IND, 3)));
    EXPECT_TRUE(trace::wait_for("Callid [3] not active \n"));
}

TEST_F(ReRegistration, threads_and_calls_stay_as_they_are) {
    table.ThreadInfo[2] = {.ThreadId = 55, .EventCbk = nullptr, .LastSyncError = 9};
    table.RegCount = 4;
    table.CallInfo[1].CallState = 4;
    server.start();
    EXPECT_EQ(NetCMClientReRegister(), 0u);
    EXPECT_EQ(table.ThreadInfo[2].ThreadId, 55);
    EXPECT_EQ(table.ThreadInfo[2].LastSyncError, 9);
    EXPECT_EQ(table.RegCount, 4);
    EXPECT_EQ(table.CallInfo[1].CallState, 4u);
}

TEST_F(ReRegistration, without_a_server_three_attempts_are_made) {
    const int32_t old_id = table.ClientId;
    EXPECT_EQ(NetCMClientReRegister(), NETCM_ERR_REREGISTER_RETRY_EXHAUSTED);
    EXPECT_EQ(calls::sleeps(), (std::vector<unsigned>{1, 1, 1}));
    EXPECT_EQ(platform::published("Sync.Noti.CMServer"), 3u);
    EXPECT_TRUE(trace::contains_in_order({"Failed to Re-register with CM server... so Retry : 0 \n",
                                          "Failed to Re-register with CM server... so Retry : 1 \n",
                                          "Failed to Re-register with CM server... so Retry : 2 \n",
                                          "Failed to Re-register with CM server\n"}));
    EXPECT_TRUE(trace::traced(0, "Failed to Re-register with CM server... so Retry : 2 \n", kUnit));
    EXPECT_TRUE(trace::traced(0, "Failed to Re-register with CM server\n", kUnit));
    EXPECT_EQ(table.RecvThreadId, kNoReceiver);
    EXPECT_EQ(table.SyncSockFd, -1);
    EXPECT_EQ(table.AsyncSockFd, -1);
    EXPECT_EQ(table.ClientId, old_id);
}

TEST_F(ReRegistration, the_server_may_be_back_for_the_third_attempt) {
    server.start();
    server.once(wire::NETCM_CLIENT_REGISTER_REQ, refusal(wire::NETCM_CLIENT_REGISTER_REQ, 5));
    server.once(wire::NETCM_CLIENT_REGISTER_REQ, hang_up());
    EXPECT_EQ(NetCMClientReRegister(), 0u);
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), 4u);
    EXPECT_FALSE(trace::contains("Failed to Re-register with CM server... so Retry : 2 \n"));
}

TEST_F(ReRegistration, attempts_that_fail_behind_the_connect_take_no_time) {
    server.start();
    server.on(wire::NETCM_CLIENT_REGISTER_REQ, refusal(wire::NETCM_CLIENT_REGISTER_REQ, 5));
    EXPECT_EQ(NetCMClientReRegister(), NETCM_ERR_REREGISTER_RETRY_EXHAUSTED);
    EXPECT_TRUE(calls::sleeps().empty());
}

// An attempt may fail after its async socket was registered: the next one must not take it for its own.
TEST_F(ReRegistration, each_attempt_makes_sockets_of_its_own) {
    server.start();
    calls::fail(Call::ThreadCreate);
    EXPECT_EQ(NetCMClientReRegister(), 0u);
    EXPECT_TRUE(is_open(table.AsyncSockFd));
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_SUSPEND_IND, 2)));
    EXPECT_TRUE(trace::wait_for("Callid [2] not active \n"));
}

// Numbers that the link has given back belong to the application.
TEST_F(ReRegistration, a_second_repair_closes_nothing_that_is_not_the_librarys) {
    EXPECT_EQ(NetCMClientReRegister(), NETCM_ERR_REREGISTER_RETRY_EXHAUSTED);
    std::vector<int> bystanders;
    for (int i = 0; i < 8; ++i)
        bystanders.push_back(fcntl(0, F_DUPFD_CLOEXEC, 3));
    EXPECT_EQ(NetCMClientReRegister(), NETCM_ERR_REREGISTER_RETRY_EXHAUSTED);
    server.start();
    EXPECT_EQ(NetCMClientReRegister(), 0u);
    for (const int fd : bystanders) {
        EXPECT_TRUE(is_open(fd)) << fd;
        close(fd);
    }
}

TEST_F(ReRegistrationSlow, three_attempts_without_a_server_take_about_three_seconds) {
    calls::reset();
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(NetCMClientReRegister(), NETCM_ERR_REREGISTER_RETRY_EXHAUSTED);
    const auto took = std::chrono::steady_clock::now() - before;
    EXPECT_GE(took, std::chrono::milliseconds(2'900));
    EXPECT_LT(took, std::chrono::seconds(5));
}

}  // namespace
}  // namespace quorvel::test
