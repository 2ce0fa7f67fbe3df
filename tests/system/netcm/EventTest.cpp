// What a held connection tells of what happens to it.
#include <gmock/gmock.h>

#include "Held.h"

namespace quorvel::test {
namespace {

using ::testing::HasSubstr;

TEST(NetcmEvents, a_suspend_and_a_resume_arrive) {
    CmServer server;
    Held held;
    server.ctl({"suspend"});
    held.program().wait_for_out("suspend");
    server.ctl({"resume"});
    const auto events = held.events_with("resume");
    ASSERT_GE(events.size(), 3u);
    EXPECT_EQ(events[1]["event"], "suspend");
    EXPECT_EQ(events[1]["profile_id"], 1);
    EXPECT_EQ(events[2]["event"], "resume");
}

TEST(NetcmEvents, an_address_change_brings_the_new_details) {
    CmServer server;
    Held held;
    server.ctl({"ip-change", "--address", "192.0.2.7", "--dns", "192.0.2.8", "192.0.2.9"});
    const auto event = held.events_with("ip_change").at(1);
    EXPECT_EQ(event["event"], "ip_change");
    EXPECT_EQ(event["interface"], "lo");
    EXPECT_EQ(event["address"], "192.0.2.7");
    EXPECT_EQ(event["dns_servers"], nlohmann::json({"192.0.2.8", "192.0.2.9"}));
}

TEST(NetcmEvents, a_stop_brings_its_reason_in_the_servers_words) {
    for (const int reason : {1, 2, 3, 4, 5, 6}) {
        CmServer server;
        Held held;
        const std::string told = server.ctl({"stop", "--reason", std::to_string(reason)});
        const auto event = held.events_with("\"stop\"").at(1);
        EXPECT_EQ(event["event"], "stop");
        EXPECT_EQ(event["result"], 21);
        EXPECT_EQ(event["reason"], reason);
        EXPECT_THAT(told, HasSubstr(event["meaning"].get<std::string>()));
    }
}

TEST(NetcmEvents, after_a_stop_the_end_closes_nothing) {
    CmServer server;
    Held held;
    server.ctl({"stop", "--status", "0"});
    const auto events = held.events_with("\"stop\"");
    EXPECT_EQ(events.size(), 2u);
    EXPECT_FALSE(events[1].contains("meaning"));
}

TEST(NetcmEvents, a_watch_hears_of_the_networks_status) {
    CmServer server;
    Program watch(netcm_command({"watch", "--json"}));
    server.program().wait_for_err("receives events");
    server.ctl({"network-status", "--packet-data", "2", "--wifi", "3"});
    watch.wait_for_out("network_status");
    watch.send_signal(SIGTERM);
    const auto event = json_lines(watch.wait().out).at(0);
    EXPECT_EQ(event["status"], nlohmann::json({2, 3}));
    EXPECT_FALSE(event.contains("profile_id"));
}

TEST(NetcmEvents, as_text_an_event_is_one_line) {
    CmServer server;
    Program open(netcm_command({"open"}));
    open.wait_for_out("DNS servers");
    server.ctl({"suspend"});
    open.wait_for_out("  suspend          profile ID 1  result 0\n");
}

}  // namespace
}  // namespace quorvel::test
