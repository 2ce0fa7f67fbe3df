// Events among the threads that stand in front of the mutex: they wait for those that came before.
#include <algorithm>

#include "library/calls/CallTest.h"
#include "support/Proc.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kStatus = wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ;

uint32_t ask() {
    uint32_t status = 0;
    return NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status);
}

// A thread that asks without a pause.
class Asker {
  public:
    Asker() {
        thread_.start([this] {
            while (!over_) {
                ++begun_;
                EXPECT_EQ(ask(), NETCM_SUCCESS);
                ++ended_;
            }
        });
    }
    ~Asker() {
        over_ = true;
        thread_.wait();
    }
    Asker(const Asker&) = delete;
    Asker& operator=(const Asker&) = delete;

    int32_t tid() const { return thread_.tid(); }
    int begun() const { return begun_; }
    int ended() const { return ended_; }

  private:
    std::atomic<bool> over_{false};
    std::atomic<int> begun_{0};
    std::atomic<int> ended_{0};
    AppThread thread_;
};

class EventTurns : public CallTest {
  protected:
    static wire::Record event() { return indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0); }

    // The server stands in front of the answer to the next request.
    std::shared_ptr<Gate> hold_next_answer() {
        const auto gate = std::make_shared<Gate>();
        server.once(kStatus, Answer().wait_at(gate).record(answer_record(kStatus)));
        return gate;
    }
    // Waits until the thread stands behind others; behind trace::clear().
    static bool stands_in_line(int32_t tid) {
        return trace::wait_for(trace::text("Thread [%d] trying to lock the Mutex \n", tid)) &&
               eventually([=] { return sleeps(tid); });
    }
    // Who has had the mutex, in order.
    static std::vector<int32_t> turns() {
        std::vector<int32_t> tids;
        for (const TraceLine& line : trace::lines())
            if (line.text.starts_with("Mutex locked by"))
                tids.push_back(line.thread);
        return tids;
    }
};

// The receiver stands in line when the request that is in progress ends.
TEST_F(EventTurns, an_event_is_next_behind_the_request_that_it_has_found_in_progress) {
    registered(0);
    const int32_t receiver = receiver_tid();
    for (int round = 0; round < 10; ++round) {
        events::clear();
        trace::clear();
        const auto gate = hold_next_answer();
        std::atomic<int> ended{-1};
        Asker asker;
        const auto counting = events::during([&](const Event&) { ended = asker.ended(); });
        ASSERT_TRUE(gate->is_somebody_waiting());
        ASSERT_TRUE(server.push(event()));
        ASSERT_TRUE(stands_in_line(receiver));
        gate->open();
        ASSERT_TRUE(events::wait_for(1));
        EXPECT_TRUE(eventually([&] { return ended >= 0; }));
        EXPECT_LE(ended, 1) << "the one in progress";
    }
}

TEST_F(EventTurns, an_event_waits_for_the_threads_that_were_there_before_it) {
    for (int number = 0; number < 4; ++number)
        registered(number);
    const int32_t receiver = receiver_tid();
    trace::clear();
    const auto gate = hold_next_answer();
    user(0).thread().start([] {
        EXPECT_EQ(ask(), NETCM_SUCCESS);
        EXPECT_EQ(ask(), NETCM_SUCCESS);
    });
    ASSERT_TRUE(gate->is_somebody_waiting());
    for (const int number : {3, 1}) {
        user(number).thread().start([] { EXPECT_EQ(ask(), NETCM_SUCCESS); });
        ASSERT_TRUE(stands_in_line(user(number).tid()));
    }
    ASSERT_TRUE(server.push(event()));
    ASSERT_TRUE(stands_in_line(receiver));
    user(2).thread().start([] { EXPECT_EQ(ask(), NETCM_SUCCESS); });
    ASSERT_TRUE(stands_in_line(user(2).tid()));
    gate->open();
    for (int number = 0; number < 4; ++number)
        user(number).thread().wait();
    EXPECT_EQ(turns(), (std::vector<int32_t>{user(0).tid(), user(3).tid(), user(1).tid(), receiver,
                                             user(2).tid(), user(0).tid()}));
}

// Without holding anybody. How soon the kernel lets the receiver run is not ours to say, so half of the
// events may do worse.
TEST_F(EventTurns, a_thread_that_asks_without_a_pause_does_not_hold_events_up) {
    constexpr int kEvents = 101;
    registered(0);
    trace::stop_keeping();
    std::vector<int> overtaken;
    std::atomic<int> ended{0};
    Asker asker;
    const auto counting = events::during([&](const Event&) { ended = asker.ended(); });
    ASSERT_TRUE(eventually([&] { return asker.ended() > 10; }));
    for (int i = 0; i < kEvents; ++i) {
        events::clear();
        ended = -1;
        ASSERT_TRUE(server.push(event()));
        const int begun = asker.begun();
        ASSERT_TRUE(eventually([&] { return ended >= 0; }));
        overtaken.push_back(std::max(0, ended - begun));
    }
    std::nth_element(overtaken.begin(), overtaken.begin() + kEvents / 2, overtaken.end());
    EXPECT_LE(overtaken[kEvents / 2], 5);
}

// The last thread to leave has the mutex and waits for the receiver, which stands in line behind it.
TEST_F(EventTurns, a_receiver_that_stands_in_line_does_not_hang_the_last_deregistration) {
    constexpr int kRounds = 20;
    AppThread before;
    AppThread behind;
    for (int round = 0; round < kRounds; ++round) {
        User& leaving = registered(0);
        const int32_t receiver = receiver_tid();
        events::clear();
        trace::clear();
        const auto gate = hold_next_answer();
        before.start([] { EXPECT_EQ(ask(), NETCM_SUCCESS); });
        ASSERT_TRUE(gate->is_somebody_waiting());
        leaving.thread().start([] { EXPECT_EQ(NetCMClientDeRegister(), NETCM_SUCCESS); });
        ASSERT_TRUE(stands_in_line(leaving.tid()));
        ASSERT_TRUE(server.push(event()));
        ASSERT_TRUE(stands_in_line(receiver));
        behind.start([] { EXPECT_EQ(ask(), NETCM_ERR_NOT_REGISTERED); });
        ASSERT_TRUE(stands_in_line(behind.tid()));
        gate->open();
        ASSERT_TRUE(leaving.thread().done(std::chrono::seconds(20)));
        before.wait();
        behind.wait();
        EXPECT_EQ(events::count(), 1u) << "what it had in hand is delivered before the thread has left";
    }
}

}  // namespace
}  // namespace quorvel::test
