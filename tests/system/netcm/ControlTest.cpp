// netcm status, interfaces, settings and packet-data.
#include <gmock/gmock.h>

#include "Netcm.h"

namespace quorvel::test {
namespace {

using nlohmann::json;
using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr const char* kWireless = R"(
[[profile]]
name = "wireless"
kind = "wlan"
essid = "wireless"
interface = "nosuch0"
)";

TEST(NetcmStatus, tells_the_state_of_each_interface) {
    CmServer server;
    const json both = netcm_json({"status"});
    ASSERT_EQ(both.size(), 2u);
    EXPECT_EQ(both[0], json({{"interface", "pdp"}, {"status", 3}, {"meaning", "ready"}}));
    EXPECT_EQ(both[1]["interface"], "wifi");
    EXPECT_EQ(both[1]["meaning"], "absent");
    // netcm and the server mean the same by the numbers.
    EXPECT_THAT(server.stop().err, HasSubstr("packet data ready, Wi-Fi absent"));
}

TEST(NetcmStatus, of_one_interface_asks_for_no_other) {
    CmServer server;
    EXPECT_EQ(netcm_json({"status", "wifi"}).size(), 1u);
    EXPECT_EQ(netcm({"status", "pdp"}).out,
              "interface  status  meaning\n"
              "pdp        3       ready\n");
    EXPECT_EQ(netcm({"status", "usb"}).status, 2);
}

TEST(NetcmInterfaces, tells_which_are_available) {
    CmServer server(kWireless);
    const json list = netcm_json({"interfaces"});
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[1], json({{"interface", "wifi"}, {"available", false}}));
}

TEST(NetcmSettings, keep_what_is_set) {
    CmServer server;
    EXPECT_EQ(netcm_json({"settings", "set", "4", "4294967295"}), json({{"key", 4}, {"value", 4294967295u}}));
    EXPECT_EQ(netcm_json({"settings", "get", "4"})["value"], 4294967295u);
    const json all = netcm_json({"settings", "get"});
    ASSERT_EQ(all.size(), 5u);
    EXPECT_EQ(all[0], json({{"key", 0}, {"value", 0}}));
    EXPECT_EQ(all[4]["value"], 4294967295u);
}

TEST(NetcmSettings, a_key_or_value_out_of_range_is_wrong_usage) {
    EXPECT_EQ(netcm({"settings", "get", "5"}).status, 2);
    EXPECT_EQ(netcm({"settings", "set", "0"}).status, 2);
    EXPECT_EQ(netcm({"settings", "set", "0", "4294967296"}).status, 2);
    EXPECT_EQ(netcm({"settings"}).status, 2);
}

TEST(NetcmPacketData, belongs_to_a_connection_of_the_process) {
    CmServer server;
    EXPECT_EQ(netcm_json({"packet-data", "get", "--open", "0"}), json({{"packet_data_state", 1}}));
    EXPECT_EQ(netcm_json({"packet-data", "set", "3", "--open", "1"}), json({{"packet_data_state", 3}}));
}

TEST(NetcmPacketData, without_a_connection_says_what_to_do) {
    CmServer server;
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"packet-data", "get"}, {"packet-data", "set", "2"}}) {
        const Ended ended = netcm(words);
        EXPECT_EQ(ended.status, 1);
        EXPECT_THAT(ended.err, AllOf(HasSubstr("NETCM_ERR_NOT_REGISTERED (6)"), HasSubstr("--open")));
    }
}

TEST(NetcmPacketData, a_state_out_of_range_is_wrong_usage) {
    EXPECT_EQ(netcm({"packet-data", "set", "0"}).status, 2);
    EXPECT_EQ(netcm({"packet-data", "set", "4"}).status, 2);
}

}  // namespace
}  // namespace quorvel::test
