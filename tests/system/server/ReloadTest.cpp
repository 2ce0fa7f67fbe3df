// Signals: the configuration is read again on SIGHUP, and others do not end the server.
#include <signal.h>

#include <fstream>

#include "server/RawClient.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

constexpr const char* kConfigPath = "/tmp/cm-server.toml";

// A simulated network that refuses with this reason; 0 is none.
std::string network(int reason, const std::string& more = "") {
    return more + "[[network]]\nbearer = \"simulated\"\nrefusal = " + std::to_string(reason) +
           "\naddress = \"10.8.0.1\"\n";
}

class Reload : public ::testing::Test {
  public:
    void reload(const std::string& config, const std::string& says) {
        std::ofstream(kConfigPath) << config;
        server.program().send_signal(SIGHUP);
        server.program().wait_for_err(says);
    }
    uint32_t reason() {
        EXPECT_EQ(client.start(1).Status, uint32_t{NETCM_SUCCESS});
        const wire::Record event = client.event();
        if (event.Status == NETCM_SUCCESS) {
            client.async().bytes(sizeof(wire::ConnectionBlock));
            client.stop(event.CallId, 1);
        }
        return event.Word5;
    }

    CmServer server{network(5)};
    RawClient client;
};

TEST_F(Reload, brings_the_networks_of_the_file) {
    EXPECT_EQ(reason(), 5u);
    reload(network(0), "read again");
    EXPECT_EQ(reason(), 0u);
}

TEST_F(Reload, leaves_open_connections_alone) {
    reload(network(0), "read again");
    const uint32_t call = client.open(1);
    reload(network(5, "# other\n"), "read again; networks");
    EXPECT_EQ(client.stop(call, 1).Code, uint32_t{wire::NETCM_CLIENT_STOP_RSP});
}

TEST_F(Reload, of_a_broken_file_leaves_everything_as_it_was) {
    reload("[[network]]\nbearer = \"simulated\"\nrefusal = \"no\"\n",
           std::string("error: ") + kConfigPath + ":3: refusal must be a number or one of none, ");
    server.program().wait_for_err("error: the configuration is left as it was");
    EXPECT_EQ(reason(), 5u);
}

TEST_F(Reload, brings_the_log_level_and_the_limits) {
    reload(network(5, "log-level = \"warning\"\n[limits]\nmemory = 1\n"), "");
    // Nobody says that it is done at this level.
    while (reason() != 5 || run({CM_SERVER_PATH, "ctl", "faults"}).status != 0) {
    }
    const std::string log = server.stop().err;
    EXPECT_EQ(log.find("ends on SIGTERM"), std::string::npos) << log;
}

TEST_F(Reload, says_that_profiles_stay_as_they_are) {
    reload(network(5) + "[[profile]]\nname = \"other\"\napn = \"other\"\n", "the profiles differ");
    EXPECT_STREQ(profile_in(ask_pm(client, 4, 1)).ProfileName, "local");
    EXPECT_EQ(ask_pm(client, 13).error, 0u);
    EXPECT_STREQ(profile_in(ask_pm(client, 4, 1)).ProfileName, "other");
}

TEST_F(Reload, names_five_profiles_and_counts_the_others) {
    std::string profiles;
    for (const char* name : {"a", "b", "c", "d", "e", "f", "g"})
        profiles += std::string("[[profile]]\nname = \"") + name + "\"\napn = \"x\"\n";
    reload(network(5) + profiles, "which stay: 1 \"a\", 2 \"b\", 3 \"c\", 4 \"d\", 5 \"e\" and 2 more. ");
}

TEST(LogLevel, of_the_file_is_that_of_the_start_unless_the_command_line_has_one) {
    CmServer loud("log-level = \"debug\"\n");
    RawClient client;
    loud.program().wait_for_err("debug: connection from process ");
    loud.stop();
    CmServer given("log-level = \"debug\"\n", {"--log-level", "info"});
    RawClient other;
    EXPECT_EQ(given.stop().err.find("debug: "), std::string::npos);
}

TEST_F(Reload, is_the_operators_too) {
    std::ofstream(kConfigPath) << network(0);
    EXPECT_EQ(ctl({"reload"}).out, std::string(kConfigPath) + ": read again\n");
    EXPECT_EQ(reason(), 0u);
    std::ofstream(kConfigPath) << "refusal = 0\n";
    const Ended ended = ctl({"reload"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, std::string("cm-server: ") + kConfigPath +
                             ":1: unknown key \"refusal\"\nthe configuration is left as it was\n");
    EXPECT_EQ(reason(), 0u);
}

TEST(ReloadedFile, whose_profiles_are_not_in_the_database_is_told_at_every_start) {
    const std::string profile = "[[profile]]\nname = \"other\"\napn = \"other\"\n";
    { CmServer first("", {"--db", "/tmp/kept.db"}); }
    CmServer server(profile, {"--db", "/tmp/kept.db"});
    server.program().wait_for_err(
        "the profiles differ from those in the database, which stay: 1 \"other\". \"netcm profile restore\" "
        "takes "
        "the file's over");
    EXPECT_NE(ctl({"reload"}).out.find("the profiles differ"), std::string::npos);
    RawClient client;
    EXPECT_EQ(ask_pm(client, 13).error, 0u);
    EXPECT_EQ(ctl({"reload"}).out, std::string(kConfigPath) + ": read again\n");
}

TEST(ServerSignals, hang_up_without_a_file_is_no_end) {
    CmServer server;
    server.program().send_signal(SIGHUP);
    server.program().wait_for_err("there is no configuration file to read again");
    EXPECT_NO_THROW(RawClient());
}

TEST(ServerSignals, that_mean_nothing_to_it_do_not_end_it) {
    CmServer server;
    for (const int signal : {SIGUSR1, SIGUSR2, SIGALRM, SIGIO, SIGPIPE, SIGRTMIN + 3})
        server.program().send_signal(signal);
    EXPECT_NO_THROW(RawClient());
    EXPECT_EQ(server.stop().status, 0);
}

}  // namespace
}  // namespace quorvel::test
