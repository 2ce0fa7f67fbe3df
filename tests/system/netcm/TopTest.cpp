// netcm top.
#include <gmock/gmock.h>

#include "Held.h"
#include "support/Eventually.h"

namespace quorvel::test {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

TEST(NetcmTop, shows_connections_rates_and_events_as_lines) {
    CmServer server;
    Held held;
    Program top(netcm_command({"top", "--interval", "20ms"}));
    top.wait_for_out("connection ");
    top.wait_for_out("received 0 B/s  sent 0 B/s");
    server.ctl({"network-status", "--packet-data", "1"});
    top.wait_for_out("packet data down");
    server.ctl({"stop"});
    top.wait_for_out("connection gone");
    top.send_signal(SIGINT);
    const Ended ended = top.wait();
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_THAT(ended.out, HasSubstr("device lo  address 127.0.0.1  state up  users 1"));
    EXPECT_EQ(ended.out.find('\033'), std::string::npos);
}

TEST(NetcmTop, prints_lines_of_json) {
    CmServer server;
    Held held;
    const auto lines = netcm_json_lines({"top", "--for", "0"});
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0]["event"], "look");
    EXPECT_EQ(lines[0]["connections"][0]["address"], "127.0.0.1");
    EXPECT_EQ(lines[0]["received_bytes_per_second"], 0);
}

TEST(NetcmTop, goes_on_while_the_server_is_away) {
    CmServer server;
    Program top(netcm_command({"top", "--interval", "20ms"}));
    top.wait_for_out("look");
    server.ctl({"restart", "--away", "100"});
    server.program().wait_for_err("is back");
    // It has registered again, and goes on looking.
    EXPECT_TRUE(eventually([&] { return server.ctl({"list"}).find(" yes ") != std::string::npos; }));
    top.send_signal(SIGTERM);
    EXPECT_EQ(top.wait().status, 0);
}

TEST(NetcmTop, draws_a_screen_on_a_terminal) {
    CmServer server;
    Held held;
    const Ended ended =
        run({"script", "--quiet", "--command", "env TERM=xterm '" NETCM_PATH "' top --for 0", "/dev/null"});
    EXPECT_THAT(ended.out, HasSubstr("\033[H\033[2J"));
    EXPECT_THAT(ended.out, HasSubstr("127.0.0.1"));
    EXPECT_THAT(ended.out, HasSubstr("received 0 B/s"));
}

}  // namespace
}  // namespace quorvel::test
