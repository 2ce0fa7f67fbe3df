// netcm close, kill and cleanup.
#include <gmock/gmock.h>

#include "Held.h"

namespace quorvel::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr const char* kThreeProfiles = R"(
[[profile]]
name = "first"
apn = "first"
interface = "lo"

[[profile]]
name = "second"
apn = "second"
interface = "lo"

[[profile]]
name = "wireless"
kind = "wlan"
essid = "wireless"
interface = "lo"
)";

TEST(NetcmClose, of_a_connection_that_is_not_its_own_explains_itself) {
    CmServer server;
    Held held;
    const Ended ended = netcm({"close", "1"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, AllOf(HasSubstr("netcm: cannot close profile 1: NETCM_ERR_NOT_ACTIVE (9)"),
                                 HasSubstr("--open")));
}

TEST(NetcmClose, opens_first_where_it_is_asked_to) {
    CmServer server;
    const auto event = netcm_json({"close", "1", "--open"});
    EXPECT_EQ(event["event"], "close_response");
    EXPECT_EQ(event["result"], 0);
}

TEST(NetcmClose, tells_why_the_open_before_it_failed) {
    CmServer server;
    const Ended ended = netcm({"close", "2", "--open"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, HasSubstr("netcm: cannot open profile 2: NETCM_ERR_INVALID_PROFILE (7)"));
}

TEST(NetcmKill, ends_the_connection_of_another_process) {
    CmServer server;
    Held held;
    const auto answer = netcm_json({"kill", "1"});
    EXPECT_EQ(answer["event"], "kill_response");
    EXPECT_EQ(answer["profile_id"], 1);
    EXPECT_EQ(answer["result"], 0);
    const auto event = held.events_with("\"stop\"").at(1);
    EXPECT_EQ(event["result"], 22);
    EXPECT_EQ(event["meaning"], "the connection was killed");
}

TEST(NetcmKill, of_nothing_is_refused_by_the_server) {
    CmServer server;
    const Ended ended = netcm({"kill", "1"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.out, HasSubstr("kill response"));
    EXPECT_THAT(ended.err, HasSubstr("NETCM_ERR_NOT_ACTIVE (9)"));
}

TEST(NetcmCleanup, without_connections_has_nothing_to_do) {
    CmServer server;
    EXPECT_EQ(netcm_json({"cleanup"}), nlohmann::json::array());
    EXPECT_EQ(netcm({"cleanup"}).out, "none\n");
}

TEST(NetcmCleanupSlow, ends_every_packet_data_connection_and_no_other) {
    CmServer server(kThreeProfiles);
    Held first("1");
    Held second("2");
    Held wireless("3");
    const auto ended = netcm_json({"cleanup"});
    ASSERT_EQ(ended.size(), 2u);
    EXPECT_EQ(ended[0]["profile_id"], 1);
    EXPECT_EQ(ended[0]["apn"], "first");
    EXPECT_EQ(ended[1]["profile_id"], 2);
    EXPECT_EQ(first.events_with("\"stop\"").at(1)["result"], 22);
    EXPECT_EQ(second.events_with("\"stop\"").at(1)["result"], 22);
    EXPECT_EQ(netcm_json({"list", "ids"}), nlohmann::json({3}));
}

}  // namespace
}  // namespace quorvel::test
