// The server goes away while somebody else is in the middle of something: held at a trace line, or in a
// callback.
#include <atomic>

#include "CallTest.h"
#include "quorvel/NetPM.h"

namespace quorvel::test {
namespace {

class ResetRace : public CallTest {
  protected:
    // User 0 with profile 7 on call 0, up; user 1 registered.
    void one_call_up() {
        bring_up(registered(0), 7);
        registered(1);
        events::clear();
        trace::clear();
    }

    // Holds whoever traces this line first until the end of the server has been told to everybody.
    class HeldUntilReset {
      public:
        explicit HeldUntilReset(ResetRace& test, std::string text)
            : hook_(trace::on_line([this, &test, text = std::move(text)](const TraceLine& line) {
                  if (line.text == text && !met_.exchange(true))
                      test.reset();
              })) {}
        bool met() const { return met_; }

      private:
        std::atomic<bool> met_{false};
        Hook<const TraceLine&> hook_;
    };

    void reset() {
        server.stop();
        EXPECT_TRUE(trace::wait_for("Quorvel connection got reset, close the thread \n"));
        EXPECT_TRUE(eventually(link_is_broken));
    }
    std::vector<Told> told_to(int number) {
        std::vector<Told> result = told();
        std::erase_if(result, [=](const Told& one) { return one.user != number; });
        return result;
    }
    std::vector<Told> ended(int number) { return {{number, NETCM_EVENT_STOP_IND, 7, kServerGone}}; }
    // No call is left, and the next one on the same id is as new.
    void expect_all_new() {
        for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index)
            EXPECT_TRUE(is_free(index)) << index;
        server.start();
        bring_up(user(0), 7);
        EXPECT_EQ(call(0).CallState, 0u);
        join(user(1), 7);
    }
};

TEST_F(ResetRace, an_answer_to_a_join_that_it_meets_is_not_given) {
    one_call_up();
    const HeldUntilReset held(*this, "Found thread-profile entry in thread index [1] \n");
    EXPECT_EQ(user(1).open(7), NETCM_SUCCESS);
    ASSERT_TRUE(trace::wait_for("ThreadPostStartEvent.. Close the thread \n"));
    EXPECT_TRUE(held.met());
    EXPECT_EQ(told_to(1), ended(1));
    EXPECT_EQ(told_to(0), ended(0));
    expect_all_new();
}

TEST_F(ResetRace, an_answer_to_a_close_that_it_meets_is_not_given) {
    one_call_up();
    join(user(1), 7);
    events::clear();
    const HeldUntilReset held(
        *this,
        trace::text("In __stop_conn_thread to send local stop response to tid [%d] \n", user(1).tid()));
    EXPECT_EQ(user(1).close(7), NETCM_SUCCESS);
    ASSERT_TRUE(trace::wait_for("__stop_conn_thread.. Close the thread \n"));
    EXPECT_TRUE(held.met());
    EXPECT_EQ(told_to(1), ended(1));
    expect_all_new();
}

TEST_F(ResetRace, nothing_comes_behind_a_close_response_that_has_been_given) {
    one_call_up();
    join(user(1), 7);
    events::clear();
    const HeldUntilReset held(*this, "Response sent to the client \n");
    EXPECT_EQ(user(1).close(7), NETCM_SUCCESS);
    ASSERT_TRUE(trace::wait_for("__stop_conn_thread.. Close the thread \n"));
    EXPECT_TRUE(held.met());
    EXPECT_EQ(told_to(1), (std::vector<Told>{{1, NETCM_EVENT_CLOSE_RSP, 7, 0}}));
    EXPECT_EQ(told_to(0), ended(0));
    expect_all_new();
}

TEST_F(ResetRace, users_that_leave_in_front_of_it_leave_no_call_behind) {
    one_call_up();
    join(user(1), 7);
    events::clear();
    // Both leave at once, so that neither may be the last when he asks.
    pthread_mutex_lock(&NetCMAppMutex);
    for (const int number : {0, 1})
        user(number).thread().start([] { EXPECT_EQ(NetCMConnectionClose(7), NETCM_SUCCESS); });
    pthread_mutex_unlock(&NetCMAppMutex);
    for (const int number : {0, 1})
        user(number).thread().wait();
    ASSERT_TRUE(events::wait_for(2));
    ASSERT_TRUE(settled());
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    for (const Request& stop : server.requests(wire::NETCM_CLIENT_STOP_REQ))
        EXPECT_EQ(stop.header.Arg3, 0u);
    expect_all_new();
}

TEST_F(ResetRace, a_close_that_it_meets_leaves_no_state_behind) {
    one_call_up();
    const HeldUntilReset held(*this, "Sending stop request to PS server for call id 0\n");
    user(0).close(7);
    EXPECT_TRUE(held.met());
    EXPECT_EQ(told(), ended(0));
    for (const Request& stop : server.requests(wire::NETCM_CLIENT_STOP_REQ))
        EXPECT_EQ(stop.header.Arg3, 0u) << "a stop for no call";
    expect_all_new();
}

TEST_F(ResetRace, a_close_that_it_meets_before_it_has_begun_finds_nothing) {
    one_call_up();
    const HeldUntilReset held(*this, "Call ID = [0]\n");
    EXPECT_EQ(user(0).close(7), NETCM_ERR_NOT_ACTIVE);
    EXPECT_TRUE(held.met());
    EXPECT_EQ(told(), ended(0));
    expect_all_new();
}

TEST_F(ResetRace, a_kill_that_it_meets_leaves_no_state_behind) {
    one_call_up();
    join(user(1), 7);
    events::clear();
    server.on(wire::NETCM_CLIENT_KILL_REQ, silence());
    // Behind the send, in front of the change.
    std::atomic<bool> met{false};
    const int32_t killer = user(1).tid();
    const auto hook = trace::on_line([&](const TraceLine& line) {
        if (line.thread == killer && line.text.starts_with("Successfully written 24 byte") &&
            !met.exchange(true))
            reset();
    });
    EXPECT_EQ(user(1).kill(7), NETCM_SUCCESS);
    EXPECT_TRUE(met);
    EXPECT_EQ(told_to(0), ended(0));
    EXPECT_EQ(told_to(1), ended(1));
    server.forget_scripts();
    expect_all_new();
    EXPECT_EQ(user(1).kill(7), NETCM_SUCCESS) << "the lost server has taken the kill along";
}

TEST_F(ResetRace, a_join_that_it_meets_does_not_enter_a_free_record) {
    one_call_up();
    const HeldUntilReset held(*this, trace::text("No instance exists for the thread [%d]\n", user(1).tid()));
    EXPECT_EQ(user(1).open(7), NETCM_ERR_FAILURE);
    EXPECT_TRUE(held.met());
    EXPECT_EQ(told(), ended(0));
    expect_all_new();
}

TEST_F(ResetRace, a_call_that_is_opened_while_users_are_told_is_ended_as_well) {
    one_call_up();
    uint32_t opened = 99;
    std::atomic<bool> met{false};
    const auto opening = events::during([&](const Event& event) {
        if (event.type == NETCM_EVENT_STOP_IND && event.profile == 7 && !met.exchange(true))
            opened = user(1).open(8);
    });
    // The sync socket lives on: the server accepts the open.
    server.close_async();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(opened, NETCM_SUCCESS);
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 7, kServerGone},
                                         {1, NETCM_EVENT_STOP_IND, 8, kServerGone}}));
    EXPECT_TRUE(is_free(1));
}

TEST_F(ResetRace, a_call_that_is_opened_behind_the_end_is_ended_as_well) {
    one_call_up();
    std::atomic<bool> met{false};
    const int32_t opener = user(1).tid();
    const auto hook = trace::on_line([&](const TraceLine& line) {
        if (line.thread != opener || line.text != "Sent Request to the CM \n" || met.exchange(true))
            return;
        server.close_async();
        EXPECT_TRUE(trace::wait_for("Quorvel connection got reset, close the thread \n"));
        EXPECT_TRUE(eventually(link_is_broken));
    });
    EXPECT_EQ(user(1).open(8), NETCM_SUCCESS);
    EXPECT_TRUE(met);
    ASSERT_TRUE(events::wait_for_user(1, 1));
    EXPECT_EQ(told_to(1), (std::vector<Told>{{1, NETCM_EVENT_STOP_IND, 8, kServerGone}}));
}

TEST_F(ResetRace, pending_kills_tunnel_requests_and_queries_are_forgotten) {
    registered(0);
    server.on(wire::NETCM_CLIENT_KILL_REQ, silence());
    server.on(wire::NETPM_APPPROF_REQ, silence());
    for (int32_t profile = 1; profile <= NETCM_MAX_KILLS; ++profile)
        EXPECT_EQ(user(0).kill(profile), NETCM_SUCCESS);
    EXPECT_EQ(user(0).kill(9), NETCM_ERR_NO_FREE_KILL_ENTRY);
    NetCMTunnelData data = {.Param = 0, .RequestId = 0, .DataLength = 0, .Data = nullptr};
    for (int i = 0; i < NETCM_MAX_TUNNELS; ++i)
        EXPECT_EQ(user(0).run([&] { return NetCMTunnelRequest(&data); }), NETCM_SUCCESS);
    for (int i = 0; i < NETCM_MAX_PROPER_PROFILES; ++i)
        EXPECT_EQ(user(0).run([] { return NetPMAppProfGetProperProfileAsync(5); }), NETCM_SUCCESS);
    reset();
    const auto all_free = with_table([](const NetCMClientAppInfo& table) {
        bool free = true;
        for (const NetCMKillReq& request : table.KillReq)
            free &= request.ThreadId == -1 && request.ProfileId == -1;
        for (const NetCMTunnelReq& request : table.TunnelReq)
            free &= request.ThreadId == -1 && request.RequestId == -1;
        for (const NetCMProperProfReq& request : table.ProperProfReq)
            free &= request.InUse == 0 && request.ThreadId == -1 && request.ReqKey == -1;
        return free;
    });
    EXPECT_TRUE(all_free);
    EXPECT_EQ(events::count(), 0u) << "nobody is told";
    server.forget_scripts();
    server.start();
    EXPECT_EQ(user(0).kill(1), NETCM_SUCCESS);
}

TEST_F(ResetRace, the_last_thread_takes_its_pending_requests_along) {
    registered(0);
    server.on(wire::NETPM_APPPROF_REQ, silence());
    EXPECT_EQ(user(0).run([] { return NetPMAppProfGetProperProfileAsync(5); }), NETCM_SUCCESS);
    EXPECT_EQ(user(0).deregister(), NETCM_SUCCESS);
    EXPECT_EQ(with_table([](const auto& table) { return table.ProperProfReq[0].InUse; }), 0);
}

TEST_F(ResetRace, nobody_leaves_who_has_still_to_be_told) {
    one_call_up();
    join(user(1), 7);
    events::clear();
    uint32_t left = 99;
    std::atomic<bool> met{false};
    const auto leaving = events::during([&](const Event& event) {
        if (event.user == 0 && !met.exchange(true))
            left = user(1).deregister();
    });
    reset();
    EXPECT_EQ(left, NETCM_ERR_ALREADY_EXISTS);
    EXPECT_EQ(told_to(1), ended(1));
    EXPECT_EQ(user(1).deregister(), NETCM_SUCCESS);
}

TEST_F(ResetRace, many_threads_open_and_close_while_it_happens_again_and_again) {
    constexpr int kOpeners = 8;
    constexpr int kRounds = 30;
    trace::stop_keeping();
    for (int number = 0; number < kOpeners; ++number)
        registered(number);
    std::atomic<bool> done{false};
    for (int number = 0; number < kOpeners; ++number)
        user(number).thread().start([&done, number] {
            for (int i = 0; !done; ++i) {
                const int32_t profile = 1 + (number + i) % 3;
                NetCMConnectionOpen(&profile, 1);
                NetCMConnectionClose(profile);
            }
        });
    for (int round = 0; round < kRounds; ++round) {
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        server.stop();
        server.start();
    }
    done = true;
    for (int number = 0; number < kOpeners; ++number)
        user(number).thread().wait();
    server.stop();
    ASSERT_TRUE(eventually([this] {
        return with_table([](const NetCMClientAppInfo& table) {
            return std::none_of(std::begin(table.CallInfo), std::end(table.CallInfo),
                                [](const NetCMCallInfo& call) {
                                    // The end of the server does not wait for the mutex.
                                    return __atomic_load_n(&call.InUse, __ATOMIC_RELAXED) != 0;
                                });
        });
    }));
    for (int number = 0; number < kOpeners; ++number)
        EXPECT_EQ(user(number).deregister(), NETCM_SUCCESS);
}

}  // namespace
}  // namespace quorvel::test
