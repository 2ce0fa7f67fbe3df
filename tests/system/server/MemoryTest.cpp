// What no client may do to the server: have it hold memory without end, or end it.
#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <memory>

#include "server/RawClient.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kWhole = 1024 * 1024;
constexpr size_t kMiB = 1024 * 1024;

// The most memory that the process has ever used.
size_t peak_of(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:"))
            return std::strtoul(line.c_str() + std::strlen("VmHWM:"), nullptr, 10) * 1024;
    return 0;
}

// Clients that leave a tunnel request unfinished, its last byte missing. Some may have been dropped before
// they had sent all of it.
class Unfinished {
  public:
    void add(size_t count) {
        const std::string data(kWhole - 1, 'x');
        for (size_t i = 0; i < count; ++i) {
            auto client = std::make_unique<RawClient>();
            try {
                client->tell(wire::NETCM_CLIENT_TUNNEL_REQ, {.Arg4 = kWhole}, data);
            } catch (const NoServer&) {
            }
            clients_.push_back(std::move(client));
        }
    }

  private:
    std::deque<std::unique_ptr<RawClient>> clients_;
};

bool is_served(RawClient& client) {
    return client.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2 == 1;
}

TEST(ServerMemory, for_the_unfinished_requests_of_a_user_is_bounded) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "what is freed stays with the sanitizer for a while, and what is used has shadows";
#endif
    CmServer server("", {"--request-time", "600000"});
    RawClient good;
    const size_t before = peak_of(server.program().pid());
    Unfinished unfinished;
    unfinished.add(60);
    server.program().wait_for_err("too many requests of its user are unfinished, this one after ");
    EXPECT_TRUE(is_served(good));
    EXPECT_LT(peak_of(server.program().pid()) - before, 40 * kMiB);
    EXPECT_EQ(server.stop().status, 0);
}

TEST(ServerMemory, for_unfinished_requests_is_bounded_as_the_configuration_says) {
    CmServer server("[limits]\nmemory = 4\nmemory-in-all = 2\n", {"--request-time", "600000"});
    Unfinished unfinished;
    unfinished.add(1);
    RawClient good;
    EXPECT_TRUE(is_served(good));
    unfinished.add(3);
    server.program().wait_for_err("too many requests of its user are unfinished");
    EXPECT_TRUE(is_served(good));
}

TEST(ServerMemory, is_given_back_when_a_request_is_finished) {
    CmServer server("[limits]\nmemory = 2\n", {"--request-time", "600000"});
    std::deque<RawClient> clients;
    // One after another each fits, all of them at once would not.
    for (int i = 0; i < 8; ++i) {
        RawClient& client = clients.emplace_back();
        const std::string half(kWhole / 2, 'x');
        client.tell(wire::NETCM_CLIENT_TUNNEL_REQ, {.Arg4 = kWhole / 2}, half);
        EXPECT_EQ(client.sync().record().Status, NETCM_SUCCESS);
        EXPECT_EQ(client.event().Word2, kWhole / 2);
        EXPECT_EQ(client.async().bytes(kWhole / 2).size(), half.size());
    }
}

// Sends so much, as long as the server takes it.
void tunnel(RawClient& client, size_t size, int times) {
    const std::string data(size, 'x');
    try {
        for (int i = 0; i < times; ++i)
            client.tell(wire::NETCM_CLIENT_TUNNEL_REQ, {.Arg4 = static_cast<uint32_t>(size)}, data);
    } catch (const NoServer&) {
    }
}

TEST(ServerMemory, for_what_comes_late_is_bounded) {
    CmServer server("[limits]\nmemory = 1\n");
    RawClient client;
    server.ctl({"fault", "late", "1h"});
    // Each has come whole before the next begins: what is unfinished is bounded, too.
    const std::string data(kWhole / 64, 'x');
    for (int i = 1; i < 64; ++i) {
        client.tell(wire::NETCM_CLIENT_TUNNEL_REQ, {.Arg4 = kWhole / 64}, data);
        server.program().wait_for_err("bytes of tunnel data, request " + std::to_string(i) + "\n");
    }
    tunnel(client, kWhole / 64, 2);
    server.program().wait_for_err(" receives no events any more: too much waits for its user");
}

TEST(ServerMemory, for_what_nobody_reads_is_bounded_for_each_user) {
    CmServer server("[limits]\nmemory = \"300kB\"\n");
    RawClient client;
    // Of each request the server reads all at once: what is unfinished is bounded by the same number.
    constexpr size_t kPage = 4096;
    tunnel(client, kPage - sizeof(wire::RequestHeader), 1000);
    server.program().wait_for_err("it does not read what it is sent, and too much waits for its user");
}

// Without a sanitizer: those need more address space than there is.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(ServerMemory, that_is_not_there_costs_the_client_that_asked_for_it_its_connection) {
    std::ofstream("/tmp/cm-server.toml") << "[limits]\nmemory = 100000\nmemory-in-all = 100000\n";
    Program server({"sh", "-c",
                    "ulimit -v 100000; exec '" CM_SERVER_PATH
                    "' --db :memory: --request-time 600000 --config /tmp/cm-server.toml"});
    server.wait_for_err("listening on");
    RawClient good;
    Unfinished unfinished;
    unfinished.add(120);
    server.wait_for_err("the work on a request has failed: out of memory");
    EXPECT_TRUE(is_served(good));
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait().status, 0);
}
#endif

// Somebody else's hand in the database: every question about profiles fails from here on.
void drop_tables(const char* file) {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(file, &database), SQLITE_OK);
    EXPECT_EQ(
        sqlite3_exec(database, "PRAGMA foreign_keys = OFF; DROP TABLE profile", nullptr, nullptr, nullptr),
        SQLITE_OK);
    sqlite3_close(database);
}

TEST(ServerStoreFailure, does_not_end_the_server_when_a_link_changes) {
    CmServer server("", {"--db", "/tmp/store.db"});
    RawClient client;
    const uint32_t call = client.open(1);
    drop_tables("/tmp/store.db");
    ASSERT_EQ(run({"ip", "link", "add", "near0", "type", "veth", "peer", "name", "far0"}).status, 0);
    ASSERT_EQ(run({"ip", "link", "set", "near0", "up"}).status, 0);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Code,
              uint32_t{wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP});
    EXPECT_EQ(client.start(1).Status, uint32_t{NETCM_ERR_FAILURE});
    EXPECT_EQ(client.stop(call, 1).Code, uint32_t{wire::NETCM_CLIENT_STOP_RSP});
    EXPECT_EQ(server.stop().status, 0);
}

}  // namespace
}  // namespace quorvel::test
