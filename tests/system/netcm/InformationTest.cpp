// netcm list, stats and info.
#include <gmock/gmock.h>

#include "Held.h"
#include "support/Network.h"

namespace quorvel::test {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

constexpr const char* kTwoKinds = R"(
dns = ["192.0.2.53"]

[[profile]]
name = "cellular"
apn = "internet"
interface = "lo"

[[profile]]
name = "home"
kind = "wlan"
essid = "my network"
interface = "lo"
)";

TEST(NetcmList, shows_what_any_process_has_open) {
    CmServer server(kTwoKinds);
    Held first("1");
    Held second("2");
    json connections{{{"interface", "pdp"}, {"profile_id", 1}, {"apn", "internet"}, {"call_id", 0}},
                     {{"interface", "wifi"}, {"profile_id", 2}, {"apn", "my network"}, {"call_id", 1}}};
    for (json& connection : connections)
        connection.update({{"device", "lo"}, {"address", "127.0.0.1"}, {"state", "up"}, {"users", 1}});
    const json all = netcm_json({"list"});
    EXPECT_EQ(all["ids"], json({1, 2}));
    EXPECT_EQ(all["names"], json({"cellular", "home"}));
    EXPECT_EQ(all["connections"], connections);
    EXPECT_EQ(netcm_json({"list", "names"}), all["names"]);
    EXPECT_EQ(netcm_json({"list", "connections", "--interface", "wifi"}), json::array({connections[1]}));
    EXPECT_EQ(netcm({"list", "ids"}).out, "1\n2\n");
}

TEST(NetcmList, of_nothing_is_empty_and_no_failure) {
    CmServer server;
    EXPECT_EQ(netcm_json({"list"}),
              json({{"ids", json::array()}, {"names", json::array()}, {"connections", json::array()}}));
    EXPECT_EQ(netcm({"list", "connections"}).out, "none\n");
}

TEST(NetcmStats, count_what_goes_over_the_connections_interface) {
    CmServer server;
    Held held;
    EXPECT_EQ(netcm_json({"stats"})["sent_packets"], 0);
    send_over_loopback(10, 5);
    const json counted = netcm_json({"stats"});
    EXPECT_GE(counted["sent_packets"], 5);
    EXPECT_GE(counted["sent_bytes"], 50);
    for (const char* packets : {"packets", "2"}) {
        const json packets_reset = netcm_json({"stats", "--reset", packets});
        EXPECT_EQ(packets_reset["sent_packets"], 0);
        EXPECT_GE(packets_reset["sent_bytes"], 50);
    }
    EXPECT_EQ(netcm_json({"stats", "--reset"})["sent_bytes"], 0);
}

TEST(NetcmStats, a_level_out_of_range_is_wrong_usage) {
    for (const char* level : {"5", "everything"}) {
        const auto refused = netcm({"stats", "--reset", level});
        EXPECT_EQ(refused.status, 2);
        EXPECT_NE(refused.err.find("\"" + std::string(level) +
                                   "\" is none of all, bytes, packets, errors, bytes-and-packets"),
                  std::string::npos)
            << refused.err;
    }
}

TEST(NetcmInfo, shows_a_connection_of_the_process) {
    CmServer server(kTwoKinds);
    const json info = netcm_json({"info", "1", "--open"});
    EXPECT_EQ(info["profile_id"], 1);
    EXPECT_EQ(info["interface"], "lo");
    EXPECT_EQ(info["address"], "127.0.0.1");
    // The library reports two servers whatever there are; an empty one is none.
    EXPECT_EQ(info["dns_servers"], json({"192.0.2.53"}));
}

TEST(NetcmInfo, of_another_processs_connection_explains_itself) {
    CmServer server;
    Held held;
    const Ended ended = netcm({"info", "1"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, HasSubstr("netcm: no details of profile 1: NETCM_ERR_NOT_ACTIVE (9)"));
    EXPECT_THAT(ended.err, HasSubstr("--open"));
}

}  // namespace
}  // namespace quorvel::test
