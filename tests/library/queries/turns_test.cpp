// Threads that wait for each other at the application mutex.
#include "library/calls/CallTest.h"
#include "support/Proc.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kStatus = wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ;

uint32_t ask() {
    uint32_t status = 0;
    return NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status);
}

class Turns : public CallTest {
  protected:
    // Starts a request that has to wait, and returns when it does.
    void queue_up(User& who) {
        who.thread().start([] { EXPECT_EQ(ask(), NETCM_SUCCESS); });
        ASSERT_TRUE(trace::wait_for(trace::text("Thread [%d] trying to lock the Mutex \n", who.tid())));
        ASSERT_TRUE(eventually([&] { return sleeps(who.tid()); }));
    }
    static std::vector<std::string> lock_traces() {
        std::vector<std::string> lines = trace::texts();
        std::erase_if(lines, [](const std::string& line) { return !line.starts_with("Mutex locked by"); });
        return lines;
    }
    static std::string locked_by(User& who) {
        return trace::text("Mutex locked by thread [%d] \n", who.tid());
    }
};

// A thread that comes back at once stands behind those that have waited.
TEST_F(Turns, are_taken_in_the_order_of_coming) {
    for (int number = 0; number < 5; ++number)
        registered(number);
    const auto gate = std::make_shared<Gate>();
    server.once(kStatus, Answer().wait_at(gate).record(answer_record(kStatus)));
    trace::clear();
    user(0).thread().start([] {
        EXPECT_EQ(ask(), NETCM_SUCCESS);
        EXPECT_EQ(ask(), NETCM_SUCCESS);
    });
    ASSERT_TRUE(gate->is_somebody_waiting());
    for (int number = 4; number > 0; --number)
        queue_up(user(number));
    gate->open();
    for (int number = 0; number < 5; ++number)
        user(number).thread().wait();
    EXPECT_EQ(lock_traces(),
              (std::vector<std::string>{locked_by(user(0)), locked_by(user(4)), locked_by(user(3)),
                                        locked_by(user(2)), locked_by(user(1)), locked_by(user(0))}));
}

// The mutex is exported: whoever has locked it waits for nobody.
TEST_F(Turns, do_not_hold_up_a_thread_that_has_the_mutex_already) {
    User& who = registered(0);
    User& other = registered(1);
    trace::clear();
    who.run([] { EXPECT_EQ(pthread_mutex_lock(&NetCMAppMutex), 0); });
    queue_up(other);
    EXPECT_EQ(who.run(ask), NETCM_SUCCESS);
    EXPECT_FALSE(other.thread().done());
    who.run([] { EXPECT_EQ(pthread_mutex_unlock(&NetCMAppMutex), 0); });
    other.thread().wait();
}

TEST_F(Turns, go_on_behind_a_lock_that_failed) {
    User& who = registered(0);
    calls::fail(Call::MutexLock, 1, EINVAL);
    calls::fail(Call::MutexUnlock, 1, EPERM);
    EXPECT_EQ(who.run(ask), NETCM_SUCCESS);
    EXPECT_EQ(registered(1).run(ask), NETCM_SUCCESS);
    EXPECT_EQ(who.run(ask), NETCM_SUCCESS);
}

}  // namespace
}  // namespace quorvel::test
