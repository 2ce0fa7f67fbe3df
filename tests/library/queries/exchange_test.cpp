// What all queries have in common: one request, one answer, and every way in which that goes wrong.
#include "library/calls/CallTest.h"
#include "library/queries/queries.h"

namespace quorvel::test {
namespace {

class Exchange : public CallTest, public ::testing::WithParamInterface<Query> {
  protected:
    const Query& query() { return GetParam(); }

    // A registered user, with a call where the query needs one. The server answers well.
    User& asking() {
        User& who = registered(0);
        if (query().needs_call) {
            EXPECT_EQ(who.open(7), NETCM_SUCCESS);
        }
        server.on(query().command, [this](const Request&) { return good_answer(); });
        trace::clear();
        return who;
    }
    uint32_t ask(User& who) { return who.run(query().ask); }

    Answer good_answer() {
        Answer answer;
        // Every word that may carry a result says its own number.
        answer.record({query().answer, 1, 2, 3, 0, 5, 6, 7, 8, 9});
        if (!query().block.empty())
            answer.bytes(query().block);
        return answer;
    }
    wire::RequestHeader expected_request(uint32_t client_id) {
        const uint32_t(&words)[4] = query().words;
        return {query().command, words[0], client_id, words[1], words[2], words[3]};
    }
    void expect_failure(const Answer& answer) {
        User& who = asking();
        server.on(query().command, answer);
        EXPECT_EQ(ask(who), NETCM_ERR_FAILURE);
        EXPECT_TRUE(traced_in_order({{3, query().unread}}));
        if (query().succeeded != nullptr) {
            EXPECT_FALSE(trace::contains(query().succeeded));
        }
    }
};

TEST_P(Exchange, the_request_is_exact_to_the_byte) {
    EXPECT_EQ(ask(asking()), NETCM_SUCCESS);
    ASSERT_EQ(server.count(query().command), 1u);
    const Request request = *server.last(query().command);
    EXPECT_EQ(bytes_of(request.header), bytes_of(expected_request(server.client_id())));
    EXPECT_TRUE(request.payload.empty());
    EXPECT_FALSE(request.is_async);
}

TEST_P(Exchange, its_steps_are_traced_in_order) {
    User& who = asking();
    EXPECT_EQ(ask(who), NETCM_SUCCESS);
    std::vector<Traced> expected;
    if (query().requested != nullptr)
        expected.push_back({0, query().requested});
    expected.push_back({0, trace::text("Thread [%d] trying to lock the Mutex \n", who.tid())});
    expected.push_back({0, trace::text("Mutex locked by thread [%d] \n", who.tid())});
    if (query().traces_answer)
        expected.push_back({2, trace::text("Received response = %d \n", static_cast<int>(query().answer))});
    if (query().succeeded != nullptr)
        expected.push_back({0, query().succeeded});
    expected.push_back({0, trace::text("Mutex unlocked by thread [%d] \n", who.tid())});
    EXPECT_TRUE(traced_in_order(expected));
}

TEST_P(Exchange, the_mutex_is_held_until_the_answer_has_come) {
    User& who = asking();
    server.on(query().command, [this](const Request&) {
        EXPECT_EQ(pthread_mutex_trylock(&NetCMAppMutex), EBUSY);
        return good_answer();
    });
    EXPECT_EQ(ask(who), NETCM_SUCCESS);
    who.run([] {
        EXPECT_NE(NetCMAppMutex.__data.__owner, NetCMGetCurrentTid());
        return 0;
    });
}

TEST_P(Exchange, an_unregistered_process_is_refused_without_a_lock) {
    EXPECT_EQ(user(0).run(query().ask), NETCM_ERR_NOT_REGISTERED);
    EXPECT_EQ(calls::count(Call::MutexLock), 0u);
    EXPECT_EQ(server.accepted_connections(), 0);
}

TEST_P(Exchange, a_refusal_is_returned_unchanged) {
    User& who = asking();
    server.on(query().command, refusal(query().command, 33, 5));
    EXPECT_EQ(ask(who), 33u);
    EXPECT_TRUE(traced_in_order({{3, query().refused}}));
    if (query().succeeded != nullptr) {
        EXPECT_FALSE(trace::contains(query().succeeded));
    }
}

TEST_P(Exchange, a_request_that_cannot_be_sent) {
    User& who = asking();
    calls::fail(Call::Send);
    EXPECT_EQ(ask(who), NETCM_ERR_FAILURE);
    EXPECT_TRUE(traced_in_order(
        {{2, query().two_blanks ? "Error Sending request to CM  \n" : "Error Sending request to CM\n"}}));
    EXPECT_EQ(server.count(query().command), 0u);
}

TEST_P(Exchange, a_server_that_hangs_up) {
    expect_failure(hang_up());
}

TEST_P(Exchange, an_answer_that_is_cut_short) {
    expect_failure(cut_short(query().command, 39));
}

TEST_P(Exchange, an_answer_with_another_code) {
    const uint32_t other = query().answer == 118 ? 121 : 118;
    expect_failure(wrong_code(other));
    EXPECT_FALSE(trace::contains(trace::text("Received response = %d \n", static_cast<int>(other))));
}

TEST_P(Exchange, an_answer_of_nonsense) {
    expect_failure(garbage());
}

TEST_P(Exchange, an_answer_that_does_not_come_in_time) {
    User& who = asking();
    server.on(query().command, silence());
    calls::answer_next_poll(0);
    EXPECT_EQ(ask(who), NETCM_ERR_FAILURE);
    EXPECT_TRUE(traced_in_order({{2, "POLLing timeout  \n", kInternal}, {3, query().unread}}));
}

TEST_P(Exchange, after_a_failure_the_next_request_works) {
    User& who = asking();
    server.once(query().command, wrong_code(300));
    EXPECT_EQ(ask(who), NETCM_ERR_FAILURE);
    EXPECT_EQ(ask(who), NETCM_SUCCESS);
}

// Most headers were made before the link was found broken: they name the client that the process was.
TEST_P(Exchange, a_broken_link_is_repaired_first) {
    User& who = asking();
    const uint32_t client_before = server.client_id();
    break_link();
    trace::clear();
    if (query().needs_call) {
        EXPECT_EQ(ask(who), NETCM_ERR_NOT_REGISTERED) << "the call ended with the link";
    } else {
        EXPECT_EQ(ask(who), NETCM_SUCCESS);
        const uint32_t named = query().names_the_new_client ? server.client_id() : client_before;
        EXPECT_EQ(bytes_of(server.last(query().command)->header), bytes_of(expected_request(named)));
    }
    EXPECT_EQ(server.client_id(), client_before + 1);
    EXPECT_TRUE(traced_in_order({{0, trace::text("Mutex locked by thread [%d] \n", who.tid())},
                                 {2, "CM server connection is broken, Re-Register with CM\n"},
                                 {2, "CM server connection is re-established\n"},
                                 {0, trace::text("Mutex unlocked by thread [%d] \n", who.tid())}}));
}

TEST_P(Exchange, a_link_that_cannot_be_repaired) {
    User& who = asking();
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    trace::clear();
    EXPECT_EQ(ask(who), NETCM_ERR_REREGISTER_FAILED);
    EXPECT_TRUE(traced_in_order({{2, "CM server connection is broken, Re-Register with CM\n"},
                                 {2, "Failed to Re-Register with CM\n"},
                                 {0, trace::text("Mutex unlocked by thread [%d] \n", who.tid())}}));
    EXPECT_FALSE(trace::contains("CM server connection is re-established\n"));
    EXPECT_EQ(calls::sleeps(), (std::vector<unsigned>{1, 1, 1}));
}

TEST_P(Exchange, a_server_that_comes_back_is_found_again) {
    User& who = asking();
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(ask(who), NETCM_ERR_REREGISTER_FAILED);
    server.start();
    EXPECT_EQ(ask(who), query().needs_call ? NETCM_ERR_NOT_REGISTERED : NETCM_SUCCESS);
}

INSTANTIATE_TEST_SUITE_P(Query, Exchange, ::testing::ValuesIn(queries()),
                         [](const auto& query) { return std::string(query.param.name); });

using RequestSlow = CallTest;

TEST_F(RequestSlow, without_a_server_a_request_fails_after_about_three_seconds) {
    User& who = registered(0);
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    calls::reset();  // sleeps take their time
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(who.run(queries().front().ask), NETCM_ERR_REREGISTER_FAILED);
    const auto taken = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(taken, std::chrono::milliseconds(2900));
    EXPECT_LE(taken, std::chrono::milliseconds(6000));
}

TEST_F(RequestSlow, a_server_that_says_nothing_is_given_up_after_60_seconds) {
    User& who = registered(0);
    server.on(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ, silence());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(who.run(queries().front().ask), NETCM_ERR_FAILURE);
    const auto taken = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(taken, std::chrono::milliseconds(59900));
    EXPECT_LE(taken, std::chrono::milliseconds(70000));
}

}  // namespace
}  // namespace quorvel::test
