// Killing every active packet-data connection of the device.
#include "CallTest.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kList = wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ;

uint32_t cleanup() {
    return NetCMConnectionCleanup();
}

class Cleanup : public CallTest {
  protected:
    // The server reports these profiles, and answers no kill.
    void serve(const std::vector<int32_t>& profiles) {
        wire::ActiveConnectionBlock block{};
        block.Count = static_cast<uint32_t>(profiles.size());
        for (size_t i = 0; i < profiles.size(); ++i) {
            block.Connection[i].ProfileId = profiles[i];
            std::strcpy(block.Connection[i].Apn, ("apn" + std::to_string(i)).c_str());
        }
        server.on(kList, Answer().record(answer_record(kList)).block(block));
        server.on(kKill, silence());
    }
    std::vector<uint32_t> killed() {
        std::vector<uint32_t> profiles;
        for (const Request& request : server.requests(kKill))
            profiles.push_back(request.header.Arg4);
        return profiles;
    }
};

TEST_F(Cleanup, every_listed_connection_is_killed_in_the_lists_order) {
    User& who = registered(0);
    serve({9, 7, 8});
    trace::clear();
    EXPECT_EQ(who.run(cleanup), NETCM_SUCCESS);
    ASSERT_TRUE(server.wait_for(kKill, 3));
    EXPECT_EQ(killed(), (std::vector<uint32_t>{9, 7, 8}));
    EXPECT_EQ(calls::sleeps(), (std::vector<unsigned>{2, 2, 2}));
    const wire::RequestHeader question = {14, 1, server.client_id(), 0, 0, 0};
    EXPECT_EQ(bytes_of(server.last(kList)->header), bytes_of(question));
    EXPECT_TRUE(
        traced_in_order({{0, "Request to close active PDP connections\n"},
                         {0, trace::text("Mutex locked by thread [%d] \n", who.tid())},
                         {0, "Request to get active APN list \n"},
                         {0, "Successfully received active connection list. No. of active conns = 3\n"},
                         {0, "Active connections are: \n"},
                         {0, "APN = [apn0], Profile ID = [9]\n"},
                         {0, "Request to kill the connection. Profile ID = 9 \n"},
                         {0, "Sent kill connection req, Profile ID = [9]\n"},
                         {0, "APN = [apn1], Profile ID = [7]\n"},
                         {0, "Sent kill connection req, Profile ID = [7]\n"},
                         {0, "APN = [apn2], Profile ID = [8]\n"},
                         {0, "Sent kill connection req, Profile ID = [8]\n"},
                         {0, trace::text("Mutex unlocked by thread [%d] \n", who.tid())}}));
}

TEST_F(Cleanup, the_mutex_is_held_across_the_kills_and_the_pauses) {
    User& who = registered(0);
    serve({7, 8});
    // Whenever a kill is on its way, nobody else gets the mutex.
    const auto trying = trace::on_line([](const TraceLine& line) {
        if (line.text.starts_with("Sent kill connection req"))
            std::thread([] { EXPECT_EQ(pthread_mutex_trylock(&NetCMAppMutex), EBUSY); }).join();
    });
    EXPECT_EQ(who.run(cleanup), NETCM_SUCCESS);
    EXPECT_EQ(trace::count("Sent kill connection req, Profile ID = [8]\n"), 1u);
}

TEST_F(Cleanup, an_unregistered_process_is_refused) {
    EXPECT_EQ(user(0).run(cleanup), NETCM_ERR_NOT_REGISTERED);
    EXPECT_TRUE(traced_in_order({{2, "Cleint is not registered with CM\n"}}));
}

TEST_F(Cleanup, an_unregistered_thread_cannot_have_the_list) {
    registered(0);
    EXPECT_EQ(user(1).run(cleanup), NETCM_ERR_NOT_REGISTERED);
    EXPECT_TRUE(traced_in_order({{2, "Failed to retreive active APN list. Status = 6\n"}}));
}

TEST_F(Cleanup, nothing_to_kill_is_a_success) {
    User& who = registered(0);
    serve({});
    EXPECT_EQ(who.run(cleanup), NETCM_SUCCESS);
    EXPECT_TRUE(traced_in_order({{0, "No active PDP connections\n"}}));
    EXPECT_EQ(count_unanswered(kKill), 0u);
}

TEST_F(Cleanup, a_server_that_says_there_is_nothing_is_a_success_too) {
    User& who = registered(0);
    server.on(kList, refusal(kList, NETCM_ERR_NOT_ACTIVE));
    EXPECT_EQ(who.run(cleanup), NETCM_SUCCESS);
    EXPECT_TRUE(traced_in_order({{0, "No active PDP connections\n"}}));
}

TEST_F(Cleanup, a_list_that_is_refused_ends_it) {
    User& who = registered(0);
    server.on(kList, refusal(kList, 33));
    EXPECT_EQ(who.run(cleanup), 33u);
    EXPECT_TRUE(traced_in_order({{2, "Failed to retreive active APN list. Status = 33\n"}}));
}

TEST_F(Cleanup, a_list_that_does_not_come_ends_it) {
    User& who = registered(0);
    server.on(kList, hang_up());
    EXPECT_EQ(who.run(cleanup), NETCM_ERR_FAILURE);
    EXPECT_TRUE(traced_in_order({{2, "Failed to retreive active APN list. Status = 1\n"}}));
}

TEST_F(Cleanup, a_kill_that_fails_is_followed_by_the_next_at_once) {
    User& who = registered(0);
    serve({7, 0, 8});
    EXPECT_EQ(who.run(cleanup), NETCM_SUCCESS);
    ASSERT_TRUE(server.wait_for(kKill, 2));
    EXPECT_EQ(killed(), (std::vector<uint32_t>{7, 8}));
    EXPECT_EQ(calls::sleeps().size(), 2u);
    EXPECT_TRUE(traced_in_order({{0, "Sent kill connection req, Profile ID = [7]\n"},
                                 {2, "Failed to send kill conn req, Profile ID = [0]\n"},
                                 {0, "Sent kill connection req, Profile ID = [8]\n"}}));
}

TEST_F(Cleanup, the_result_is_the_last_kills) {
    User& who = registered(0);
    serve({7, 0});
    EXPECT_EQ(who.run(cleanup), NETCM_ERR_INVALID_PROFILE);
    serve({0, 8});
    EXPECT_EQ(who.run(cleanup), NETCM_SUCCESS);
}

TEST_F(Cleanup, the_responses_are_delivered_when_it_is_done) {
    User& who = registered(0);
    bring_up(who, 7);
    serve({7});
    server.on(kKill, [](const Request& request) {
        return Answer().push(kill_response(static_cast<int32_t>(request.header.Arg4)));
    });
    events::clear();
    EXPECT_EQ(who.run(cleanup), NETCM_SUCCESS);
    ASSERT_TRUE(events::wait_for(1));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_KILL_RSP, 7, 0}}));
}

TEST_F(Cleanup, a_name_without_an_end_is_traced_up_to_its_field) {
    User& who = registered(0);
    wire::ActiveConnectionBlock block{};
    block.Count = 1;
    block.Connection[0].ProfileId = 7;
    std::fill(std::begin(block.Connection[0].Apn), std::end(block.Connection[0].Apn), 'a');
    std::fill(std::begin(block.Connection[0].Opaque), std::end(block.Connection[0].Opaque), 'b');
    server.on(kList, Answer().record(answer_record(kList)).block(block));
    EXPECT_EQ(who.run(cleanup), NETCM_SUCCESS);
    EXPECT_TRUE(trace::contains("APN = [" + std::string(104, 'a') + "], Profile ID = [7]\n"));
}

TEST_F(Cleanup, a_broken_link_is_repaired_first) {
    User& who = registered(0);
    serve({7});
    break_link();
    trace::clear();
    EXPECT_EQ(who.run(cleanup), NETCM_SUCCESS);
    EXPECT_TRUE(traced_in_order({{2, "CM server connection is broken, Re-Register with CM\n"},
                                 {2, "CM server connection is re-established\n"},
                                 {0, "Sent kill connection req, Profile ID = [7]\n"}}));
}

TEST_F(Cleanup, a_link_that_cannot_be_repaired) {
    User& who = registered(0);
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(who.run(cleanup), NETCM_ERR_REREGISTER_FAILED);
    EXPECT_TRUE(traced_in_order({{2, "Failed to Re-Register with CM\n"}}));
}

using CleanupSlow = Cleanup;

TEST_F(CleanupSlow, the_kills_are_about_two_seconds_apart) {
    calls::reset();  // sleeps take their time
    User& who = registered(0);
    serve({7, 8, 9});
    std::mutex mutex;
    std::vector<std::chrono::steady_clock::time_point> times;
    server.on(kKill, [&](const Request&) {
        const std::lock_guard lock(mutex);
        times.push_back(std::chrono::steady_clock::now());
        return silence();
    });
    EXPECT_EQ(who.run(cleanup), NETCM_SUCCESS);
    const auto all_seen = [&] {
        const std::lock_guard lock(mutex);
        return times.size() == 3;
    };
    ASSERT_TRUE(eventually(all_seen));
    const std::lock_guard lock(mutex);
    for (size_t i = 1; i < times.size(); ++i) {
        EXPECT_GE(times[i] - times[i - 1], std::chrono::milliseconds(1900));
        EXPECT_LE(times[i] - times[i - 1], std::chrono::milliseconds(3500));
    }
}

}  // namespace
}  // namespace quorvel::test
