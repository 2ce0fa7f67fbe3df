// What the server tells those who run it: the service manager, the log, the terminal.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>

#include "server/RawClient.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

// The service manager's end of readiness notification.
class ServiceManager {
  public:
    ServiceManager() : fd_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, "/tmp/notify");
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        setenv("NOTIFY_SOCKET", address.sun_path, 1);
    }
    ~ServiceManager() {
        unsetenv("NOTIFY_SOCKET");
        close(fd_);
    }
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    // The next notification; whoever waits in vain is ended by the time-out of the test.
    std::string told() {
        char text[256] = {};
        return recv(fd_, text, sizeof(text) - 1, 0) > 0 ? text : "";
    }

  private:
    int fd_;
};

TEST(ManagedServer, tells_when_it_is_ready_and_when_it_ends) {
    ServiceManager manager;
    CmServer server;
    EXPECT_EQ(manager.told(), "READY=1");
    EXPECT_EQ(server.stop().status, 0);
    EXPECT_EQ(manager.told(), "STOPPING=1");
}

TEST(ManagedServer, tells_that_it_goes_round_as_often_as_it_is_asked) {
    setenv("WATCHDOG_USEC", "200000", 1);
    ServiceManager manager;
    CmServer server;
    unsetenv("WATCHDOG_USEC");
    EXPECT_EQ(manager.told(), "READY=1");
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(manager.told(), "WATCHDOG=1");
    // Not as fast as it can.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
    server.stop();
}

TEST(ServerLog, carries_the_levels_of_the_journal_where_it_is_the_journal) {
    const std::string serve =
        "exec env JOURNAL_STREAM=$(stat -L -c %d:%i /proc/self/fd/2) '" CM_SERVER_PATH "' --db :memory:";
    Program server({"sh", "-c", serve});
    server.wait_for_err("<6>listening on ");
}

TEST(ServerLog, is_not_taken_for_the_journal_where_only_its_parent_had_it) {
    const std::string serve =
        "exec env JOURNAL_STREAM=$(stat -L -c 9%d:%i /proc/self/fd/2) '" CM_SERVER_PATH "' --db :memory:";
    Program server({"sh", "-c", serve});
    server.wait_for_err("Z info: listening on ");
}

TEST(ServerLog, has_an_object_on_each_line_when_asked) {
    CmServer server("", {"--log-format", "json", "--log-level", "debug"});
    uint32_t call = 0;
    uint32_t id = 0;
    {
        RawClient client(77);
        id = client.id();
        call = client.open(1);
    }
    server.program().wait_for_err("has ended");
    std::istringstream lines(server.stop().err);
    bool opened = false;
    for (std::string text; std::getline(lines, text);) {
        const auto line = nlohmann::json::parse(text);
        EXPECT_EQ(line.at("time").get<std::string>().size(), std::strlen("2000-01-01T00:00:00.000Z"));
        EXPECT_TRUE(line.contains("level"));
        if (line.at("message").get<std::string>().find(" opens profile 1 \"local\"") == std::string::npos)
            continue;
        opened = true;
        EXPECT_EQ(line.at("client"), id);
        EXPECT_EQ(line.at("process"), getpid());
        EXPECT_EQ(line.at("call"), call);
        EXPECT_EQ(line.at("level"), "info");
    }
    EXPECT_TRUE(opened);
}

TEST(ServerLog, is_not_broken_by_a_name_with_a_line_break) {
    CmServer server;
    RawClient client;
    ask_pm(client, 1, -1, slot(pdp_profile("two\nlines\x1b[31m", "internet")));
    client.open(2);
    server.program().wait_for_err("profile 2 \"two\\x0alines\\x1b[31m\"");
}

TEST(ServerLog, is_as_loud_as_asked) {
    // Errors alone, and there is none.
    Program quiet({CM_SERVER_PATH, "--db", ":memory:", "--log-level", "error", "--socket", "/tmp/quiet"});
    while (run({CM_SERVER_PATH, "--socket", "/tmp/quiet", "ctl", "list"}).status != 0) {
    }
    quiet.send_signal(SIGTERM);
    EXPECT_EQ(quiet.wait().err, "");
}

TEST(MonitorOnATerminal, is_coloured) {
    CmServer server;
    Program monitor({"script", "--quiet", "--command", "'" CM_SERVER_PATH "' monitor", "/dev/null"});
    server.program().wait_for_err("watches");
    RawClient client;
    client.open(1);
    monitor.wait_for_out("\x1b[36m  1 --> NETCM_CLIENT_START_REQ profile=1\x1b[0m");
    monitor.wait_for_out("\x1b[32m  1 <-- NETCM_CLIENT_START_RSP");
    monitor.wait_for_out("\x1b[33m  1 <== NETCM_CLIENT_START_RSP");
    server.stop();
    monitor.wait();
}

}  // namespace
}  // namespace quorvel::test
