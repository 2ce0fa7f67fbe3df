// The configuration that the server proposes for a machine.
#include <gtest/gtest.h>

#include <fstream>

#include "networkmanager/ManagedTest.h"
#include "networkmanager/StandInModem.h"
#include "support/Eventually.h"

namespace quorvel::test {
namespace {

// What it proposes, which has to be a configuration without a fault.
std::string proposal() {
    const Ended proposed = run({CM_SERVER_PATH, "--discover"});
    EXPECT_EQ(proposed.status, 0) << proposed.err;
    EXPECT_EQ(proposed.err, "");
    constexpr const char* kFile = "/tmp/proposal.toml";
    std::ofstream(kFile) << proposed.out;
    const Ended checked = run({CM_SERVER_PATH, "--check-config", "--config", kFile});
    EXPECT_EQ(checked.status, 0) << checked.err << proposed.out;
    return proposed.out;
}

void expect_has(const std::string& text, const std::string& part) {
    EXPECT_NE(text.find(part), std::string::npos) << part << "\nin\n" << text;
}

class Discovery : public ManagedTest {};

TEST_F(Discovery, proposes_the_connections_that_network_manager_has) {
    using Manager = RealNetworkManager;
    Manager::nmcli("connection add type wifi ssid 'the \"home\"' con-name 'at home' autoconnect no");
    Manager::nmcli("connection add type gsm apn internet con-name twin autoconnect no");
    Manager::nmcli("connection add type ethernet ifname eth7 con-name twin autoconnect no");
    std::string second = Manager::nmcli("-g connection.uuid connection show twin");
    second = second.substr(0, second.find('\n'));
    const std::string text = proposal();
    expect_has(text,
               "# NetworkManager's connection \"wired\" (802-3-ethernet).\n[[network]]\napn = \"wired\"\n"
               "bearer = \"networkmanager\"\nconnection = \"wired\"\n\n[[profile]]\nname = \"wired\"\n"
               "apn = \"wired\"\n");
    expect_has(text,
               "[[network]]\nkind = \"wlan\"\nessid = \"the \\\"home\\\"\"\nbearer = \"networkmanager\"\n"
               "connection = \"at home\"\n\n[[profile]]\nname = \"at home\"\nkind = \"wlan\"\n"
               "essid = \"the \\\"home\\\"\"\n");
    expect_has(text, "connection = \"" + second + "\"\n");
    // As it is, it serves, in the order of the names.
    server = std::make_unique<CmServer>(text);
    RawClient client;
    wire::ConnectionBlock block{};
    client.open(4, &block);
    EXPECT_STREQ(block.IfaceName, "eth9");
}

TEST_F(Discovery, proposes_the_modem_that_network_manager_has) {
    const StandInModem modem("eth9");
    RealNetworkManager::nmcli("connection delete wired");
    ASSERT_TRUE(eventually([] {
        return RealNetworkManager::nmcli("-t -f DEVICE,STATE device").find("cdc-wdm7:disconnected") !=
               std::string::npos;
    }));
    const std::string text = proposal();
    expect_has(text, "# The modem cdc-wdm7: NetworkManager makes a connection of every other profile");
    server =
        std::make_unique<CmServer>(text + "[[profile]]\nname = \"Internet\"\napn = \"internet.example\"\n");
    RawClient client;
    wire::ConnectionBlock block{};
    client.open(1, &block);
    EXPECT_STREQ(block.IfaceName, "eth9");
}

TEST(DiscoveryWithoutNetworkManager, proposes_the_interfaces_that_are_there) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/tmp/no-such-bus", 1);
    expect_has(proposal(), "There is no interface but the loopback");
    ASSERT_EQ(run({"ip", "link", "add", "net0", "type", "veth", "peer", "name", "net1"}).status, 0);
    run({"ip", "address", "add", "10.0.0.2/24", "dev", "net0"});
    for (const char* name : {"net0", "net1"})
        ASSERT_EQ(run({"ip", "link", "set", name, "up"}).status, 0);
    const std::string text = proposal();
    expect_has(text, "Connections follow interfaces that somebody else brings up: the system's message bus");
    expect_has(text, "[[network]]\napn = \"net0\"\ninterface = \"net0\"\n\n[[profile]]\nname = \"net0\"\n");
    const CmServer server(text);
    RawClient client;
    wire::ConnectionBlock block{};
    client.open(1, &block);
    EXPECT_EQ(dotted(block.IpAddr), "10.0.0.2");
}

}  // namespace
}  // namespace quorvel::test
