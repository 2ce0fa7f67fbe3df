// The reason of a refused open.
#include "support/ClientTest.h"

namespace quorvel::test {
namespace {

constexpr char kUnit[] = "client/CM/src/NetCMIntf";

class TransportError : public ClientTest {
  protected:
    uint32_t get(User& who, int32_t* error) {
        return who.run([=] { return NetCMGetTransportError(error); });
    }
};

TEST_F(TransportError, into_a_null_pointer_is_refused_without_a_lock) {
    EXPECT_EQ(get(user(0), nullptr), NETCM_ERR_INVALID_PARAM);
    EXPECT_TRUE(trace::traced(5, "Invalid input parameter\n", kUnit));
    EXPECT_FALSE(trace::wait_for_prefix("Thread [", std::chrono::milliseconds(0)));
}

TEST_F(TransportError, before_registration_gives_6) {
    int32_t error = 44;
    EXPECT_EQ(get(user(0), &error), NETCM_ERR_NOT_REGISTERED);
    EXPECT_EQ(error, 44);
    EXPECT_TRUE(trace::contains("Cleint is not yet registered with CM\n"));
}

TEST_F(TransportError, of_a_thread_that_is_not_registered_gives_6) {
    registered(0);
    int32_t error = 44;
    EXPECT_EQ(get(user(1), &error), NETCM_ERR_NOT_REGISTERED);
    EXPECT_EQ(error, 44);
    EXPECT_TRUE(trace::contains("Thread info not found with CM\n"));
}

TEST_F(TransportError, is_minus_1_at_first) {
    EXPECT_EQ(registered(0).transport_error(), -1);
}

TEST_F(TransportError, stays_when_it_is_read) {
    User& who = registered(0);
    server.on(wire::NETCM_CLIENT_START_REQ, refusal(wire::NETCM_CLIENT_START_REQ, 21, 555));
    EXPECT_EQ(who.open(3), 21u);
    EXPECT_EQ(who.transport_error(), 555);
    EXPECT_EQ(who.transport_error(), 555);
    EXPECT_TRUE(
        trace::contains(trace::text("Last sync transport error = [555] for thread [%d]\n", who.tid())));
}

TEST_F(TransportError, belongs_to_one_thread) {
    User& first = registered(0);
    User& second = registered(1);
    server.on(wire::NETCM_CLIENT_START_REQ, refusal(wire::NETCM_CLIENT_START_REQ, 21, 555));
    EXPECT_EQ(first.open(3), 21u);
    EXPECT_EQ(second.transport_error(), -1);
}

}  // namespace
}  // namespace quorvel::test
