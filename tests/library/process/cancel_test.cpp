// Threads that are cancelled while they are in the library: they end when they leave it.
#include <pthread.h>

#include <cerrno>

#include "library/calls/CallTest.h"
#include "support/Proc.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kStatus = wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ;

uint32_t ask() {
    uint32_t status = 0;
    return NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status);
}

// A thread that makes one request, and would go on afterwards.
class Cancelled {
  public:
    explicit Cancelled(int cancel_type = PTHREAD_CANCEL_DEFERRED) : cancel_type_(cancel_type) {
        pthread_create(
            &thread_, nullptr, [](void* self) { return static_cast<Cancelled*>(self)->live(); }, this);
        EXPECT_TRUE(eventually([this] { return tid() != 0; }));
    }
    Cancelled(const Cancelled&) = delete;
    Cancelled& operator=(const Cancelled&) = delete;

    int32_t tid() const { return tid_; }
    void cancel() { EXPECT_EQ(pthread_cancel(thread_), 0); }
    bool still_runs() { return pthread_tryjoin_np(thread_, nullptr) == EBUSY; }
    // Waits for its end. What it has given.
    void* join() {
        void* result = nullptr;
        EXPECT_EQ(pthread_join(thread_, &result), 0);
        EXPECT_FALSE(went_on_);
        return result;
    }
    void expect_cancelled_behind_a_request_that_succeeded() {
        EXPECT_EQ(join(), PTHREAD_CANCELED);
        EXPECT_EQ(result_, static_cast<uint32_t>(NETCM_SUCCESS))
            << "99: it has not come back from the library";
    }

  private:
    void* live() {
        pthread_setcanceltype(cancel_type_, nullptr);
        tid_ = NetCMGetCurrentTid();
        result_ = ask();
        pthread_testcancel();
        went_on_ = true;
        return nullptr;
    }

    int cancel_type_;
    pthread_t thread_ = {};
    std::atomic<int32_t> tid_{0};
    std::atomic<uint32_t> result_{99};
    std::atomic<bool> went_on_{false};
};

class Cancellation : public CallTest {
  protected:
    // The server stands in front of the answer to the next request.
    std::shared_ptr<Gate> hold_next_answer() {
        const auto gate = std::make_shared<Gate>();
        server.once(kStatus, Answer().wait_at(gate).record(answer_record(kStatus)));
        return gate;
    }
    static bool stands_at_the_mutex(int32_t tid) {
        return trace::wait_for(trace::text("Thread [%d] trying to lock the Mutex \n", tid)) &&
               eventually([=] { return sleeps(tid); });
    }
};

TEST_F(Cancellation, inside_a_request_acts_when_the_request_is_over) {
    User& who = registered(0);
    const auto gate = hold_next_answer();
    Cancelled thread;
    ASSERT_TRUE(gate->is_somebody_waiting());
    ASSERT_TRUE(stands_at_the_mutex(thread.tid())) << "or sleeps behind it";
    thread.cancel();
    EXPECT_TRUE(thread.still_runs());
    gate->open();
    thread.expect_cancelled_behind_a_request_that_succeeded();
    EXPECT_EQ(who.run(ask), NETCM_SUCCESS);
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), 1u) << "on the same link";
}

TEST_F(Cancellation, inside_the_wait_for_the_mutex_acts_when_the_request_is_over) {
    User& first = registered(0);
    const auto gate = hold_next_answer();
    first.thread().start([] { EXPECT_EQ(ask(), NETCM_SUCCESS); });
    ASSERT_TRUE(gate->is_somebody_waiting());
    Cancelled thread;
    ASSERT_TRUE(stands_at_the_mutex(thread.tid()));
    // Behind the one that will be cancelled.
    User& next = user(1);
    next.thread().start([] { EXPECT_EQ(ask(), NETCM_SUCCESS); });
    ASSERT_TRUE(stands_at_the_mutex(next.tid()));
    thread.cancel();
    EXPECT_TRUE(thread.still_runs());
    gate->open();
    thread.expect_cancelled_behind_a_request_that_succeeded();
    next.thread().wait();
    EXPECT_EQ(first.run(ask), NETCM_SUCCESS);
}

// It acts when the library lets it, and not where the thread is.
TEST_F(Cancellation, of_the_asynchronous_kind_leaves_nothing_locked) {
    User& who = registered(0);
    const auto gate = hold_next_answer();
    Cancelled thread(PTHREAD_CANCEL_ASYNCHRONOUS);
    ASSERT_TRUE(gate->is_somebody_waiting());
    thread.cancel();
    EXPECT_TRUE(thread.still_runs());
    gate->open();
    thread.join();  // the C library gives such a thread no result
    EXPECT_EQ(who.run(ask), NETCM_SUCCESS);
}

}  // namespace
}  // namespace quorvel::test
