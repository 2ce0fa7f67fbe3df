// VPN connections of a real NetworkManager, with a stand-in for the VPN's service.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <fstream>

#include "networkmanager/ManagedTest.h"
#include "networkmanager/StandInVpn.h"
#include "support/Eventually.h"

namespace quorvel::test {
namespace {

using cm::Reason;

class Vpn : public ManagedTest {
  public:
    void SetUp() override {
        ManagedTest::SetUp();
        if (IsSkipped())
            return;
        // NetworkManager looks for what it knows of VPNs here, when it starts.
        constexpr const char* kFolder = "/usr/lib/NetworkManager/VPN";
        ASSERT_EQ(mount("tmpfs", kFolder, "tmpfs", 0, nullptr), 0);
        std::ofstream(std::string(kFolder) + "/nm-standin-service.name")
            << "[VPN Connection]\nname=standin\nservice=" << StandInVpn::kName << "\nprogram=/bin/true\n";
        manager->kill();
        manager->start();
        for (const char* words : {"add tun7 type veth peer name tun8", "set tun7 up", "set tun8 up"})
            ASSERT_EQ(run({"sh", "-c", std::string("ip link ") + words}).status, 0);
        RealNetworkManager::nmcli(std::string("connection add type vpn con-name office autoconnect no ") +
                                  "ipv6.method disabled vpn-type " + StandInVpn::kName);
        // It needs a connection below it.
        RealNetworkManager::nmcli("connection up wired");
        vpn = std::make_unique<StandInVpn>("tun7");
        serve(config_of("office"));
    }

    std::unique_ptr<StandInVpn> vpn;
};

TEST_F(Vpn, has_the_tunnel_s_interface_and_goes_with_its_call) {
    RawClient client;
    const auto becomes = [&](uint32_t status) {
        return eventually(
            [&] { return client.ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ).Word8 == status; });
    };
    EXPECT_TRUE(becomes(2));
    wire::ConnectionBlock block{};
    const uint32_t call = client.open(1, &block);
    EXPECT_STREQ(block.IfaceName, "tun7");
    EXPECT_EQ(dotted(block.IpAddr), StandInVpn::kAddress);
    EXPECT_EQ(dotted(block.DnsAddr[0]), StandInVpn::kNameServer);
    EXPECT_TRUE(becomes(3));
    client.stop(call, 1);
    EXPECT_TRUE(eventually([this] { return vpn->disconnections() == 1; }));
    EXPECT_TRUE(eventually([] { return !RealNetworkManager::is_active("office"); }));
    EXPECT_TRUE(RealNetworkManager::is_active("wired"));
    EXPECT_TRUE(becomes(2));
}

TEST_F(Vpn, that_the_other_side_ends_is_told) {
    RawClient client;
    client.open(1);
    vpn->hang_up();
    wire::Record event = client.event();
    if (event.Code == wire::NETCM_CLIENT_SUSPEND_IND)  // its tunnel was seen going first
        event = client.event();
    expect_reason(event, wire::NETCM_CLIENT_STOP_IND, Reason::kLost);
    server->program().wait_for_err("\"office\" has ended: ");
    client.open(1);
}

TEST_F(Vpn, that_refuses_the_login_is_told) {
    vpn->refuse();
    RawClient client;
    expect_refused(client, Reason::kRefused);
    server->program().wait_for_err("does not come up: the other side refuses the login");
}

TEST_F(Vpn, ends_with_the_connection_below_it) {
    RawClient client;
    client.open(1);
    RealNetworkManager::nmcli("connection down wired");
    wire::Record event = client.event();
    if (event.Code == wire::NETCM_CLIENT_SUSPEND_IND)
        event = client.event();
    EXPECT_EQ(event.Code, wire::NETCM_CLIENT_STOP_IND);
    EXPECT_FALSE(RealNetworkManager::is_active("office"));
}

}  // namespace
}  // namespace quorvel::test
