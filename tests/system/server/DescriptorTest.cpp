// What becomes of the server and its clients when file descriptors run short.
#include <sys/resource.h>

#include <deque>
#include <filesystem>

#include "server/RawClient.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

// With this many in the end, 60 clients can be served.
constexpr const char* kFew = "200";
constexpr size_t kServed = 60;

Program limited(const std::string& limit) {
    return Program(
        {"sh", "-c", "ulimit " + limit + "; exec '" CM_SERVER_PATH "' --db :memory: --max-clients 4096"});
}

uint32_t registration_status(RawSocket& socket) {
    socket.send({wire::NETCM_CLIENT_REGISTER_REQ, 0, 3, 0, 0, 0});
    return socket.record().Status;
}

TEST(ServerDescriptors, that_are_too_few_for_all_clients_are_named_at_the_start) {
    Program server = limited(std::string("-n ") + kFew);
    server.wait_for_err(
        "warning: 4096 clients need 8272 file descriptors, and the hard limit is 200: only 60 can");
}

TEST(ServerDescriptors, that_are_too_few_cost_the_next_client_its_registration_and_no_other) {
    Program server = limited(std::string("-n ") + kFew);
    server.wait_for_err("listening on");
    std::deque<RawClient> clients;
    for (size_t i = 0; i < kServed; ++i)
        clients.emplace_back();
    RawSocket one_too_many;
    EXPECT_EQ(registration_status(one_too_many), uint32_t{NETCM_ERR_MAX_LIMIT});
    for (RawClient& client : clients)
        EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2, 1u);
}

TEST(ServerDescriptors, are_as_many_as_the_hard_limit_allows) {
    Program server = limited("-Sn 64");
    server.wait_for_err("listening on");
    std::deque<RawClient> clients;
    for (size_t i = 0; i < 50; ++i)
        clients.emplace_back();
    EXPECT_EQ(clients.back().ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2, 1u);
}

TEST(ServerDescriptors, are_not_for_those_who_say_nothing) {
    Program server = limited(std::string("-n ") + kFew);
    server.wait_for_err("listening on");
    RawClient early;
    std::deque<RawSocket> silent;
    for (int i = 0; i < 300; ++i)
        silent.emplace_back();
    RawClient late;
    for (RawClient* client : {&early, &late})
        EXPECT_EQ(client->ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2, 1u);
    EXPECT_TRUE(silent.front().closed());
    server.wait_for_err("those that do not say who they are go first");
}

// Takes the server's descriptors away, as a system that has no more does, and gives them back.
class Shortage : public ::testing::Test {
  public:
    void begin() { set(lowest_free()); }
    void end() { set(before.rlim_cur); }

    CmServer server;
    RawClient client;

  private:
    // The lowest that is free: a limit counts numbers, not descriptors.
    rlim_t lowest_free() {
        const std::string folder = "/proc/" + std::to_string(server.program().pid()) + "/fd/";
        rlim_t number = 0;
        while (std::filesystem::is_symlink(folder + std::to_string(number)))
            ++number;
        return number;
    }
    void set(rlim_t count) {
        rlimit now = before;
        now.rlim_cur = count;
        ASSERT_EQ(prlimit(server.program().pid(), RLIMIT_NOFILE, &now, nullptr), 0);
    }
    rlimit before = [this] {
        rlimit limit{};
        prlimit(server.program().pid(), RLIMIT_NOFILE, nullptr, &limit);
        return limit;
    }();
};

TEST_F(Shortage, makes_new_clients_wait_and_the_log_says_so_sparingly) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's own checks need a descriptor";
#endif
    begin();
    RawSocket waiting;
    server.program().wait_for_err("nobody can be let in: Too many open files");
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2, 1u);
    end();
    EXPECT_EQ(registration_status(waiting), uint32_t{NETCM_SUCCESS});
    const std::string log = server.stop().err;
    EXPECT_LT(log.size(), size_t{4096});
    EXPECT_EQ(log.find("[warn]"), std::string::npos) << "in the log's own format";
}

TEST_F(Shortage, is_no_news_about_the_network) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's own checks need a descriptor";
#endif
    const uint32_t call = client.open(1);
    begin();
    ASSERT_EQ(run({"ip", "link", "add", "near0", "type", "veth", "peer", "name", "far0"}).status, 0);
    ASSERT_EQ(run({"ip", "link", "set", "near0", "up"}).status, 0);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ).Word8, 3u);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ).Status, uint32_t{NETCM_SUCCESS});
    EXPECT_EQ(client.sync().block<wire::ProfileIdBlock>().Count, 1u);
    EXPECT_EQ(client.stop(call, 1).Code, uint32_t{wire::NETCM_CLIENT_STOP_RSP});
}

}  // namespace
}  // namespace quorvel::test
