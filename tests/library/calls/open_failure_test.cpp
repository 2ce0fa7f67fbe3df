// Every way in which opening a connection fails once the request is on its way.
#include <unistd.h>

#include "CallTest.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kCommand = wire::NETCM_CLIENT_START_REQ;

class OpenFailure : public CallTest {
  protected:
    void expect_no_call() {
        for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index)
            EXPECT_TRUE(is_free(index)) << index;
    }
};

TEST_F(OpenFailure, a_request_that_cannot_be_sent) {
    User& who = registered(0);
    calls::fail(Call::Send);
    EXPECT_EQ(who.open(7), NETCM_ERR_FAILURE);
    EXPECT_TRUE(traced_in_order({{2, "Error Sending request to CM. Error = [1] \n"}}));
    EXPECT_FALSE(trace::contains("Sent Request to the CM \n"));
    expect_no_call();
}

TEST_F(OpenFailure, a_server_that_hangs_up) {
    User& who = registered(0);
    server.on(kCommand, hang_up());
    EXPECT_EQ(who.open(7), NETCM_ERR_FAILURE);
    EXPECT_TRUE(traced_in_order(
        {{2, "Sent Request to the CM \n"}, {3, "Error reading response from CM. Error = [1]\n"}}));
    expect_no_call();
}

TEST_F(OpenFailure, an_answer_that_is_cut_short) {
    User& who = registered(0);
    server.on(kCommand, cut_short(kCommand, 20));
    EXPECT_EQ(who.open(7), NETCM_ERR_FAILURE);
    expect_no_call();
}

TEST_F(OpenFailure, an_answer_that_does_not_come_in_time) {
    User& who = registered(0);
    server.on(kCommand, silence());
    calls::answer_next_poll(0);
    EXPECT_EQ(who.open(7), NETCM_ERR_FAILURE);
    EXPECT_TRUE(traced_in_order(
        {{2, "POLLing timeout  \n", kInternal}, {3, "Error reading response from CM. Error = [1]\n"}}));
}

TEST_F(OpenFailure, an_answer_with_another_code) {
    User& who = registered(0);
    server.on(kCommand, wrong_code(wire::NETCM_CLIENT_STOP_RSP));
    EXPECT_EQ(who.open(7), NETCM_ERR_FAILURE);
    EXPECT_FALSE(trace::contains("Received response = 102 \n"));
    expect_no_call();
}

TEST_F(OpenFailure, a_sync_socket_that_is_gone) {
    User& who = registered(0);
    server.close_sync();
    EXPECT_EQ(who.open(7), NETCM_ERR_FAILURE);
    expect_no_call();
}

TEST_F(OpenFailure, a_refusal_with_a_reason_hands_the_reason_on) {
    User& who = registered(0);
    User& other = registered(1);
    server.on(kCommand, refusal(kCommand, 21, 4242));
    EXPECT_EQ(who.open(7), 21u);
    EXPECT_EQ(who.transport_error(), 4242);
    EXPECT_EQ(who.transport_error(), 4242) << "reading must not reset it";
    EXPECT_EQ(other.transport_error(), -1);
    EXPECT_TRUE(traced_in_order(
        {{2, "Received response = 101 \n"},
         {3, "Error Starting connection = 21 \n"},
         {0, trace::text("Last sync transport error = [4242] for thread [%d]\n", who.tid())}}));
    expect_no_call();
}

TEST_F(OpenFailure, any_other_refusal_forgets_the_reason) {
    User& who = registered(0);
    server.once(kCommand, refusal(kCommand, 21, 4242));
    who.open(7);
    server.on(kCommand, refusal(kCommand, 22, 99));
    EXPECT_EQ(who.open(7), 22u);
    EXPECT_EQ(who.transport_error(), -1);
    EXPECT_TRUE(traced_in_order({{3, "Error Starting connection = 22 \n"}}));
    expect_no_call();
}

TEST_F(OpenFailure, a_profile_can_be_opened_after_a_refusal) {
    User& who = registered(0);
    server.once(kCommand, refusal(kCommand, 22));
    EXPECT_EQ(who.open(7), 22u);
    bring_up(who, 7);
    EXPECT_EQ(call(0).IsActive, 1);
}

// The async socket and the receiver are usually there since the registration.
class OpenRepairs : public OpenFailure {
  protected:
    // Takes the async socket out of the table; it stays open until the end of the test.
    void hide_async_socket() {
        hidden_ = with_table([](NetCMClientAppInfo& table) { return std::exchange(table.AsyncSockFd, -1); });
    }
    void TearDown() override {
        if (hidden_ < 0)
            return;
        forget_calls();
        EXPECT_EQ(user(0).deregister(), NETCM_SUCCESS);
        close(hidden_);
    }
    // The server's answer to the next start waits until the receiver has noticed that its socket is closed.
    void lose_receiver_during_start() {
        gate_ = std::make_shared<Gate>();
        server.once(kCommand, Answer().close_async().wait_at(gate_).record(
                                  answer_record(wire::NETCM_CLIENT_START_REQ)));
        user(0).thread().start([this] {
            const int32_t profile = 7;
            result_ = NetCMConnectionOpen(&profile, 1);
        });
        ASSERT_TRUE(gate_->is_somebody_waiting());
        ASSERT_TRUE(eventually(link_is_broken));
    }
    uint32_t result() {
        gate_->open();
        user(0).thread().wait();
        return result_;
    }

  private:
    int hidden_ = -1;
    uint32_t result_ = 0;
    std::shared_ptr<Gate> gate_;
};

TEST_F(OpenRepairs, a_missing_async_socket_is_created) {
    User& who = registered(0);
    hide_async_socket();
    EXPECT_EQ(who.open(7), NETCM_SUCCESS);
    const int fd = with_table([](const auto& table) { return table.AsyncSockFd; });
    EXPECT_GT(fd, 2);
    ASSERT_TRUE(server.wait_for(wire::NETCM_CLIENT_ASYNC_REGISTER_REQ, 2));
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_ASYNC_REGISTER_REQ), 2u);
    EXPECT_EQ(server.last(wire::NETCM_CLIENT_ASYNC_REGISTER_REQ)->header.ClientId, server.client_id());
    EXPECT_TRUE(traced_in_order({{0, trace::text("Async socket = %d \n", fd)}}));
    EXPECT_FALSE(trace::wait_for_prefix("Async socket already exist", std::chrono::milliseconds(0)));
}

TEST_F(OpenRepairs, an_async_socket_that_cannot_be_created_ends_the_open) {
    User& who = registered(0);
    hide_async_socket();
    calls::fail(Call::Socket);
    EXPECT_EQ(who.open(7), NETCM_ERR_FAILURE);
    EXPECT_TRUE(traced_in_order({{4, "Error creating Async Socket \n"}}));
    EXPECT_EQ(server.count(kCommand), 0u);
}

TEST_F(OpenRepairs, an_async_socket_that_cannot_be_connected_ends_the_open) {
    User& who = registered(0);
    hide_async_socket();
    calls::fail(Call::Connect);
    EXPECT_EQ(who.open(7), NETCM_ERR_FAILURE);
    EXPECT_EQ(server.count(kCommand), 0u);
}

TEST_F(OpenRepairs, a_receiver_that_has_ended_meanwhile_is_started_anew) {
    registered(0);
    lose_receiver_during_start();
    EXPECT_EQ(result(), NETCM_SUCCESS);
    EXPECT_TRUE(trace::wait_for_prefix("CM APP Thread created, ID = "));
    // Its socket is closed: it tells the user that the new call has ended as well.
    EXPECT_TRUE(events::wait_for(1));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 7, 2}}));
}

TEST_F(OpenRepairs, a_receiver_that_cannot_be_started_leaves_the_call_open) {
    registered(0);
    lose_receiver_during_start();
    calls::fail(Call::ThreadCreate);
    EXPECT_EQ(result(), NETCM_ERR_FAILURE);
    EXPECT_TRUE(
        traced_in_order({{4, trace::text("CM lib async thread creation failed. Error = [%d]\n", EAGAIN)}}));
    EXPECT_EQ(call(0).InUse, 1);
    // The next request finds the receiver missing, and registers anew.
    EXPECT_EQ(user(0).open(8), NETCM_SUCCESS);
    EXPECT_TRUE(trace::contains("CM server connection is re-established\n"));
}

TEST_F(OpenRepairs, a_broken_link_is_repaired_first) {
    User& who = registered(0);
    break_link();
    trace::clear();
    EXPECT_EQ(who.open(7), NETCM_SUCCESS);
    EXPECT_TRUE(traced_in_order({{2, "CM server connection is broken, Re-Register with CM\n"},
                                 {2, "CM server connection is re-established\n"},
                                 {0, "Sending start request to PS server for profile id [7]\n"}}));
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), 2u);
    EXPECT_EQ(server.last(kCommand)->header.ClientId, server.client_id());
}

TEST_F(OpenRepairs, a_link_that_cannot_be_repaired_ends_the_open) {
    User& who = registered(0);
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    trace::clear();
    EXPECT_EQ(who.open(7), NETCM_ERR_REREGISTER_FAILED);
    EXPECT_TRUE(traced_in_order({{2, "CM server connection is broken, Re-Register with CM\n"},
                                 {2, "Failed to Re-Register with CM\n"}}));
    EXPECT_FALSE(trace::contains("CM server connection is re-established\n"));
}

}  // namespace
}  // namespace quorvel::test
