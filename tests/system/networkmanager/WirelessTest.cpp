// Wi-Fi with a stand-in for NetworkManager: no radio is here.
#include <gtest/gtest.h>

#include "networkmanager/ManagedTest.h"
#include "networkmanager/StandInWireless.h"
#include "support/Eventually.h"

namespace quorvel::test {
namespace {

using cm::Reason;

constexpr const char* kConfig = R"(
[[network]]
kind = "wlan"
bearer = "networkmanager"
[[profile]]
name = "Home"
kind = "wlan"
essid = "home"
security-mode = "psk"
psk = "hush-hush"
)";

class Wireless : public ManagedTest {
  public:
    void SetUp() override {
        ManagedTest::SetUp();
        if (IsSkipped())
            return;
        // It leaves its bus and the device eth9, which is up.
        manager->kill();
        wireless = std::make_unique<StandInWireless>("eth9");
        serve(kConfig);
    }
    void expect_nothing_left() {
        EXPECT_TRUE(eventually([this] { return wireless->stored() == 0 && wireless->active() == 0; }))
            << wireless->stored() << " and " << wireless->active();
    }

    std::unique_ptr<StandInWireless> wireless;
};

TEST_F(Wireless, comes_up_with_name_and_passphrase_and_goes_with_its_call) {
    RawClient client;
    wire::ConnectionBlock block{};
    const uint32_t call = client.open(1, &block);
    EXPECT_STREQ(block.IfaceName, "eth9");
    EXPECT_EQ(dotted(block.IpAddr), "10.70.0.42");
    EXPECT_EQ(dotted(block.DnsAddr[0]), "10.70.0.1");
    auto settings = wireless->settings();
    EXPECT_EQ(settings["connection.type"], "802-11-wireless");
    EXPECT_EQ(settings["connection.autoconnect"], "false");
    EXPECT_EQ(settings["802-11-wireless.ssid"], "home");
    EXPECT_EQ(settings["802-11-wireless-security.key-mgmt"], "wpa-psk");
    EXPECT_EQ(settings["802-11-wireless-security.psk"], "hush-hush");
    EXPECT_EQ(wireless->stored(), 1);
    client.stop(call, 1);
    expect_nothing_left();
}

TEST_F(Wireless, has_its_status_and_interface) {
    RawClient client;
    const auto becomes = [&](uint32_t status) {
        return eventually(
            [&] { return client.ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ).Word7 == status; });
    };
    EXPECT_TRUE(becomes(2));  // there, without a connection
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ).Word2,
              static_cast<uint32_t>(NETCM_IFACE_WIFI));
    wireless->move_to(20, 10);  // switched off
    EXPECT_TRUE(becomes(1));
}

TEST_F(Wireless, that_looks_for_its_access_point_again_suspends_the_call) {
    RawClient client;
    client.open(1);
    wireless->move_to(50, 8);
    EXPECT_EQ(client.event().Code, wire::NETCM_CLIENT_SUSPEND_IND);
    wireless->move_to(100, 0);
    EXPECT_EQ(client.event().Code, wire::NETCM_CLIENT_RESUME_IND);
}

struct WirelessEnd {
    const char* name;
    uint32_t device_reason;
    Reason reason;
    const char* words;
};

class WirelessThatEnds : public Wireless, public ::testing::WithParamInterface<WirelessEnd> {};

TEST_P(WirelessThatEnds, is_told_with_its_reason_whenever_it_does) {
    RawClient client;
    client.open(1);
    wireless->fail(GetParam().device_reason);
    wire::Record event = client.event();
    if (event.Code == wire::NETCM_CLIENT_SUSPEND_IND)  // its device was seen failing first
        event = client.event();
    expect_reason(event, wire::NETCM_CLIENT_STOP_IND, GetParam().reason);
    server->program().wait_for_err(std::string("has ended: ") + GetParam().words);
    expect_nothing_left();
    wireless->refuse(GetParam().device_reason);
    expect_refused(client, GetParam().reason);
    server->program().wait_for_err(std::string("does not come up: ") + GetParam().words);
    expect_nothing_left();
}

INSTANTIATE_TEST_SUITE_P(
    Every, WirelessThatEnds,
    ::testing::Values(WirelessEnd{"secrets", 7, Reason::kRefused, "secrets are missing or wrong"},
                      WirelessEnd{"access_point", 8, Reason::kLost, "the access point has disconnected"},
                      WirelessEnd{"time", 11, Reason::kTimeLimit, "the access point does not answer"},
                      WirelessEnd{"name", 53, Reason::kNoInterface, "the Wi-Fi network is not found"}),
    [](const auto& end) { return std::string(end.param.name); });

}  // namespace
}  // namespace quorvel::test
