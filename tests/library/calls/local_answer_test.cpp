// Answers that the library gives itself, on threads that live for one of them.
#include <atomic>
#include <cstdlib>
#include <future>

#include "CallTest.h"

namespace quorvel::test {
namespace {

class LocalAnswer : public CallTest {
  protected:
    // Runs a local response thread's body on this thread, with a block of its own.
    void* run(void* (*entry)(void*), NetCMStartRspInfo request) {
        auto* block = static_cast<NetCMStartRspInfo*>(malloc(sizeof request));
        *block = request;
        return entry(block);
    }
    NetCMStartRspInfo request(uint32_t call_index, uint32_t thread_index, uint32_t profile) {
        return {static_cast<uint32_t>(user(0).tid()), call_index, thread_index, profile};
    }
    int32_t call_of(int32_t profile) {
        int32_t call_id = -1;
        int32_t index = -1;
        with_table([&](auto&) { return NetCMGetCallIdFromProfileId(profile, &call_id, &index); });
        return call_id;
    }
    static uint32_t open_profile(int32_t profile) { return NetCMConnectionOpen(&profile, 1); }
    // User 1 asks, is answered by a thread with this last line, and only the call that it opens then is up.
    void expect_no_answer_behind_the_end_of_the_call(uint32_t (*ask)(int32_t profile),
                                                     const char* last_line) {
        EXPECT_EQ(user(1).run([ask] {
            pthread_mutex_lock(&NetCMAppMutex);
            const uint32_t asked = ask(7);
            NetCMClientCleanCallInfo(0);
            EXPECT_EQ(open_profile(7), NETCM_SUCCESS);
            pthread_mutex_unlock(&NetCMAppMutex);
            return asked;
        }),
                  NETCM_SUCCESS);
        ASSERT_TRUE(trace::wait_for(last_line));
        EXPECT_EQ(events::count(), 0u);
        ASSERT_TRUE(push_and_settle(start_response(call_of(7), 7), connection_block()));
        EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 7, 0}}));
    }
    // User 0 with profile 7 on call 0, up; user 1 registered.
    void one_call_up() {
        bring_up(registered(0), 7);
        registered(1);
        events::clear();
        trace::clear();
    }
};

TEST_F(LocalAnswer, a_null_block_is_nothing_to_do) {
    EXPECT_EQ(ThreadPostStartEvent(nullptr), nullptr);
    EXPECT_EQ(ThreadPostStopEvent(nullptr), nullptr);
    EXPECT_TRUE(trace::lines().empty());
}

TEST_F(LocalAnswer, an_open_is_answered_with_the_stored_record) {
    one_call_up();
    EXPECT_EQ(run(ThreadPostStartEvent, request(0, 0, 7)), nullptr);
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_OPEN_RSP, 7, 0}}));
    const Event event = events::all().at(0);
    EXPECT_TRUE(event.mutex_was_held);
    ASSERT_TRUE(event.details);
    EXPECT_EQ(event.details->ProfileId, 7);
    EXPECT_STREQ(event.details->IfaceName, "pdp0");
    EXPECT_EQ(event.details->DnsCount, 2);
}

TEST_F(LocalAnswer, the_answer_to_an_open_is_traced_in_order) {
    one_call_up();
    run(ThreadPostStartEvent, request(0, 0, 7));
    const int32_t tid = NetCMGetCurrentTid();
    const std::vector<TraceLine> lines = trace::lines();
    // The block's address stands between the two halves of the first line.
    EXPECT_TRUE(lines.at(0).text.starts_with(
        "In __start_conn_thread to send local start response to call id = 0 \n res = "));
    EXPECT_TRUE(lines.at(0).text.ends_with(" "));
    EXPECT_EQ(lines.at(0).file, kCore);
    EXPECT_TRUE(traced_in_order({{0, trace::text("Thread [%d] trying to lock the Mutex \n", tid), kCore},
                                 {0, trace::text("Mutex locked by thread [%d] \n", tid), kCore},
                                 {0, "Found thread-profile entry in thread index [0] \n", kCore},
                                 {0, "Response sent to the application \n", kCore},
                                 {0, "ThreadPostStartEvent.. Close the thread \n", kCore},
                                 {0, trace::text("Mutex unlocked by thread [%d] \n", tid), kCore}}));
}

TEST_F(LocalAnswer, an_open_that_is_not_in_the_table_any_more_is_not_answered) {
    one_call_up();
    for (const NetCMStartRspInfo& gone :
         {request(0, 0, 8), request(0, 1, 7), request(1, 0, 7), request(4, 0, 7), request(0xffffffff, 0, 7)})
        run(ThreadPostStartEvent, gone);
    EXPECT_EQ(events::count(), 0u);
    EXPECT_FALSE(trace::contains("Response sent to the application \n"));
    EXPECT_EQ(trace::count("ThreadPostStartEvent.. Close the thread \n"), 5u);
}

// The call ends before the answering thread gets the mutex, and the same user asks for it again.
TEST_F(LocalAnswer, an_open_is_not_answered_for_the_call_that_came_after_its_own) {
    one_call_up();
    expect_no_answer_behind_the_end_of_the_call(open_profile, "ThreadPostStartEvent.. Close the thread \n");
}

TEST_F(LocalAnswer, a_close_is_not_answered_for_the_call_that_came_after_its_own) {
    one_call_up();
    join(user(1), 7);
    events::clear();
    expect_no_answer_behind_the_end_of_the_call(NetCMConnectionClose,
                                                "__stop_conn_thread.. Close the thread \n");
}

TEST_F(LocalAnswer, a_second_close_does_not_close_what_is_opened_behind_the_first) {
    one_call_up();
    join(user(1), 7);
    events::clear();
    EXPECT_EQ(user(1).run([] {
        // Both are on their way before the first is answered.
        pthread_mutex_lock(&NetCMAppMutex);
        EXPECT_EQ(NetCMConnectionClose(7), NETCM_SUCCESS);
        const uint32_t second = NetCMConnectionClose(7);
        pthread_mutex_unlock(&NetCMAppMutex);
        return second;
    }),
              NETCM_SUCCESS);
    ASSERT_TRUE(events::wait_for(1));
    ASSERT_TRUE(trace::wait_for("__stop_conn_thread.. Close the thread \n", 2));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_CLOSE_RSP, 7, 0}}));
    EXPECT_EQ(count_unanswered(wire::NETCM_CLIENT_STOP_REQ), 0u);
}

TEST_F(LocalAnswer, a_close_that_was_asked_for_before_is_not_that_of_a_later_use) {
    one_call_up();
    join(user(1), 7);
    events::clear();
    // Held in front of its answer, the second close meets the profile closed and opened again.
    std::atomic<int> answers{0};
    std::atomic<bool> opened{false};
    const auto holding = trace::on_line([&](const TraceLine& line) {
        if (line.text.starts_with("In __stop_conn_thread") && ++answers == 2) {
            EXPECT_TRUE(eventually([&] { return opened.load(); }));
        }
    });
    EXPECT_EQ(user(1).close(7), NETCM_SUCCESS);
    const uint32_t again = user(1).close(7);
    ASSERT_TRUE(events::wait_for(1));
    join(user(1), 7);
    opened = true;
    ASSERT_TRUE(trace::wait_for("__stop_conn_thread.. Close the thread \n", again == NETCM_SUCCESS ? 2 : 1));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_CLOSE_RSP, 7, 0}, {1, NETCM_EVENT_OPEN_RSP, 7, 0}}));
    EXPECT_EQ(user(1).close(7), NETCM_SUCCESS) << "it is still open";
    EXPECT_TRUE(events::wait_for(3));
}

TEST_F(LocalAnswer, an_open_without_a_callback_is_not_answered) {
    one_call_up();
    with_table([](NetCMClientAppInfo& table) { return table.ThreadInfo[0].EventCbk = nullptr; });
    run(ThreadPostStartEvent, request(0, 0, 7));
    EXPECT_EQ(events::count(), 0u);
}

TEST_F(LocalAnswer, a_close_takes_the_profile_and_keeps_an_entry_with_another) {
    one_call_up();
    set_entry(0, 0, 0, {7, 8});
    EXPECT_EQ(run(ThreadPostStopEvent, request(0, 0, 7)), nullptr);
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_CLOSE_RSP, 7, 0}}));
    EXPECT_FALSE(events::all().at(0).has_data);
    EXPECT_TRUE(events::all().at(0).mutex_was_held);
    const NetCMCallInfo stored = call(0);
    EXPECT_EQ(stored.ThreadProf[0].ThreadIndex, 0);
    EXPECT_EQ(stored.ThreadProf[0].ProfileId[0], -1);
    EXPECT_EQ(stored.ThreadProf[0].ProfileId[1], 8);
    EXPECT_TRUE(traced_in_order(
        {{0, trace::text("In __stop_conn_thread to send local stop response to tid [%d] \n", user(0).tid()),
          kCore},
         {0, "Response sent to the client \n", kCore},
         {0, "Deleted Profile [7] from the call list. Thread-profile index [0]\n"},
         {0, "Thread has an active call with other profile\n", kCore},
         {0, "__stop_conn_thread.. Close the thread \n", kCore}}));
}

TEST_F(LocalAnswer, a_close_frees_an_entry_that_holds_nothing_any_more) {
    one_call_up();
    set_entry(0, 1, 1, {7});
    run(ThreadPostStopEvent, request(0, 0, 7));
    EXPECT_EQ(call(0).ThreadProf[0].ThreadIndex, -1);
    EXPECT_EQ(call(0).ThreadProf[1].ThreadIndex, 1);
    EXPECT_EQ(call(0).CallState, 0u);
    EXPECT_EQ(count_unanswered(wire::NETCM_CLIENT_STOP_REQ), 0u);
    EXPECT_TRUE(traced_in_order(
        {{0, "Response sent to the client \n", kCore},
         {0, "Thread has no other active calls. Clear the thread index from call list\n", kCore},
         {0, "__stop_conn_thread.. Close the thread \n", kCore}}));
}

TEST_F(LocalAnswer, a_close_without_a_callback_still_takes_the_profile) {
    one_call_up();
    set_entry(0, 1, 1, {7});
    with_table([](NetCMClientAppInfo& table) { return table.ThreadInfo[0].EventCbk = nullptr; });
    run(ThreadPostStopEvent, request(0, 0, 7));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_EQ(call(0).ThreadProf[0].ThreadIndex, -1);
}

TEST_F(LocalAnswer, a_close_that_is_not_in_the_table_any_more_is_not_answered) {
    one_call_up();
    for (const NetCMStartRspInfo& gone :
         {request(0, 0, 8), request(0, 1, 7), request(1, 0, 7), request(4, 0, 7)})
        run(ThreadPostStopEvent, gone);
    EXPECT_EQ(events::count(), 0u);
    EXPECT_EQ(trace::count("Thread index not found... never come here\n"), 4u);
    EXPECT_EQ(call(0).ThreadProf[0].ProfileId[0], 7);
}

// Users that leave at the same moment each see the others, and are answered one after another.

TEST_F(LocalAnswer, the_last_local_close_stops_the_call) {
    one_call_up();
    run(ThreadPostStopEvent, request(0, 0, 7));
    ASSERT_TRUE(server.wait_for(wire::NETCM_CLIENT_STOP_REQ));
    const wire::RequestHeader stop = {5, 0, server.client_id(), 0, 7, 0};
    EXPECT_EQ(bytes_of(server.last(wire::NETCM_CLIENT_STOP_REQ)->header), bytes_of(stop));
    EXPECT_EQ(count_unanswered(wire::NETCM_CLIENT_STOP_REQ), 1u);
    EXPECT_TRUE(settled());
    // The server's response cleans the record, and has nobody to tell any more.
    EXPECT_TRUE(is_free(0));
    EXPECT_EQ(events::count(), 1u);
}

TEST_F(LocalAnswer, a_call_left_by_the_last_local_close_is_closing_until_the_response) {
    one_call_up();
    server.on(wire::NETCM_CLIENT_STOP_REQ, silence());
    run(ThreadPostStopEvent, request(0, 0, 7));
    EXPECT_EQ(call(0).CallState, 5u);
    ASSERT_TRUE(push_and_settle(stop_response(0, 7)));
    EXPECT_TRUE(is_free(0));
}

TEST_F(LocalAnswer, the_last_local_close_leaves_a_killed_call_to_the_kill) {
    one_call_up();
    join(user(1), 7);
    server.on(wire::NETCM_CLIENT_KILL_REQ, silence());
    EXPECT_EQ(user(0).kill(7), NETCM_SUCCESS);
    run(ThreadPostStopEvent, request(0, 1, 7));
    EXPECT_EQ(call(0).CallState, 7u);
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_STOP_REQ), 0u);
    ASSERT_TRUE(push_and_settle(kill_response(7)));
    EXPECT_TRUE(is_free(0));
}

TEST_F(LocalAnswer, a_call_whose_stop_cannot_be_sent_is_not_left_behind) {
    one_call_up();
    calls::fail(Call::Send);
    run(ThreadPostStopEvent, request(0, 0, 7));
    EXPECT_TRUE(calls::has_failed(Call::Send));
    EXPECT_TRUE(is_free(0));
}

TEST_F(LocalAnswer, an_open_that_was_closed_and_opened_again_is_answered_once) {
    one_call_up();
    {
        std::atomic<bool> is_first{true};
        std::promise<void> opened_again;
        const std::shared_future<void> go_on = opened_again.get_future().share();
        const auto hook = trace::on_line([&is_first, go_on](const TraceLine& line) {
            if (line.text.starts_with("In __start_conn_thread") && is_first.exchange(false))
                go_on.wait();
        });
        EXPECT_EQ(user(1).open(7), NETCM_SUCCESS);
        // The other's thread must not be the one that is held up.
        ASSERT_TRUE(eventually([&is_first] { return !is_first; }));
        EXPECT_EQ(user(1).close(7), NETCM_SUCCESS);
        ASSERT_TRUE(events::wait_for(2));
        EXPECT_EQ(user(1).open(7), NETCM_SUCCESS);
        ASSERT_TRUE(events::wait_for(3));
        opened_again.set_value();
        ASSERT_TRUE(trace::wait_for("ThreadPostStartEvent.. Close the thread \n", 2));
    }
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_OPEN_RSP, 7, 0},
                                         {1, NETCM_EVENT_CLOSE_RSP, 7, 0},
                                         {1, NETCM_EVENT_OPEN_RSP, 7, 0}}));
}

}  // namespace
}  // namespace quorvel::test
