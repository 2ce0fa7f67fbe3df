// Connections that a real NetworkManager brings up for the server.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "networkmanager/ManagedTest.h"
#include "support/Eventually.h"

namespace quorvel::test {
namespace {

using cm::Reason;

class NetworkManager : public ManagedTest {
  public:
    // Its DHCP never gets an answer, and gives up soon.
    void let_dhcp_fail(int seconds) {
        manager->stop_dhcp();
        RealNetworkManager::nmcli("connection modify wired ipv4.may-fail no ipv4.dhcp-timeout " +
                                  std::to_string(seconds));
    }
};

TEST_F(NetworkManager, s_connection_comes_up_with_its_address_and_name_servers) {
    serve();
    RawClient client;
    wire::ConnectionBlock block{};
    client.open(1, &block);
    EXPECT_STREQ(block.IfaceName, "eth9");
    EXPECT_EQ(dotted(block.IpAddr), "10.70.0.50");
    EXPECT_EQ(dotted(block.DnsAddr[0]), "10.70.0.1");
    EXPECT_TRUE(RealNetworkManager::is_active("wired"));
}

TEST_F(NetworkManager, s_connection_is_found_by_its_uuid_and_the_profile_s_name_servers_go_before) {
    std::string uuid = RealNetworkManager::nmcli("-g connection.uuid connection show wired");
    uuid.pop_back();
    serve(config_of(uuid, "dns = [\"10.70.0.9\"]\ninterface = \"eth9\"\n"));
    RawClient client;
    wire::ConnectionBlock block{};
    client.open(1, &block);
    EXPECT_EQ(dotted(block.IpAddr), "10.70.0.50");
    EXPECT_EQ(dotted(block.DnsAddr[0]), "10.70.0.9");
}

TEST_F(NetworkManager, s_connection_is_deactivated_with_the_last_call_that_is_on_it) {
    serve();
    RawClient one;
    RawClient two;
    const uint32_t first = one.open(1);
    const uint32_t second = two.open(2);
    EXPECT_NE(first, second);
    one.stop(first, 1);
    server->ctl({"list"});
    EXPECT_TRUE(RealNetworkManager::is_active("wired"));
    two.stop(second, 2);
    EXPECT_TRUE(eventually([] { return !RealNetworkManager::is_active("wired"); }));
}

TEST_F(NetworkManager, s_connection_goes_down_with_a_server_that_ends_in_order) {
    serve();
    RawClient client;
    client.open(1);
    EXPECT_EQ(server->stop().status, 0);
    EXPECT_TRUE(eventually([] { return !RealNetworkManager::is_active("wired"); }));
}

TEST_F(NetworkManager, s_connection_comes_up_once_for_two_that_want_it_at_the_same_time) {
    serve();
    RawClient one;
    RawClient two;
    EXPECT_EQ(one.start(1).Status, NETCM_SUCCESS);
    EXPECT_EQ(two.start(2).Status, NETCM_SUCCESS);
    EXPECT_EQ(one.event().Status, NETCM_SUCCESS);
    EXPECT_EQ(two.event().Status, NETCM_SUCCESS);
    EXPECT_TRUE(RealNetworkManager::is_active("wired"));
}

TEST_F(NetworkManager, s_connection_that_somebody_else_has_brought_up_stays_up) {
    RealNetworkManager::nmcli("connection up wired");
    serve();
    expect_left_alone();
}

TEST_F(NetworkManager, s_connection_goes_down_with_a_kill) {
    serve();
    RawClient owner;
    RawClient killer;
    owner.open(1);
    killer.tell(wire::NETCM_CLIENT_KILL_REQ, {.Arg4 = 1});
    const wire::Record killed = killer.event();
    EXPECT_EQ(killed.Code, wire::NETCM_CLIENT_KILL_RSP);
    EXPECT_EQ(killed.Status, NETCM_SUCCESS);
    EXPECT_EQ(owner.event().Code, wire::NETCM_CLIENT_STOP_IND);
    EXPECT_TRUE(eventually([] { return !RealNetworkManager::is_active("wired"); }));
    owner.open(1);
    EXPECT_TRUE(RealNetworkManager::is_active("wired"));
}

// A device has one connection at a time: the later one takes it.
TEST_F(NetworkManager, s_device_belongs_to_the_profile_that_has_asked_last) {
    RealNetworkManager::nmcli(
        "connection add type ethernet con-name other ifname eth9 autoconnect no ipv6.method disabled "
        "ipv4.method manual ipv4.addresses 10.70.0.90/24");
    serve(
        "[[network]]\nbearer = \"networkmanager\"\napn = \"internet\"\nconnection = \"wired\"\n"
        "[[network]]\nbearer = \"networkmanager\"\napn = \"mail\"\nconnection = \"other\"\n"
        "[[profile]]\nname = \"Internet\"\napn = \"internet\"\ndefault = true\n"
        "[[profile]]\nname = \"Mail\"\napn = \"mail\"\n");
    RawClient first;
    RawClient second;
    first.open(1);
    wire::ConnectionBlock block{};
    second.open(2, &block);
    EXPECT_EQ(dotted(block.IpAddr), "10.70.0.90");
    EXPECT_EQ(first.event().Code, wire::NETCM_CLIENT_STOP_IND);
    EXPECT_TRUE(eventually([] { return !RealNetworkManager::is_active("wired"); }));
    first.open(1);
    EXPECT_EQ(second.event().Code, wire::NETCM_CLIENT_STOP_IND);
}

TEST_F(NetworkManager, s_device_that_loses_its_carrier_suspends_the_call_until_it_is_back) {
    serve();
    RawClient client;
    client.open(1);
    manager->behind("ip link set gw0 down");
    EXPECT_EQ(client.event().Code, wire::NETCM_CLIENT_SUSPEND_IND);
    manager->behind("ip link set gw0 up");
    EXPECT_EQ(client.event().Code, wire::NETCM_CLIENT_RESUME_IND);
}

TEST_F(NetworkManager, s_new_address_is_told) {
    serve();
    RawClient client;
    client.open(1);
    RealNetworkManager::nmcli(
        "connection modify wired ipv4.method manual ipv4.addresses 10.70.0.77/24 ipv4.dns 10.70.0.2");
    RealNetworkManager::nmcli("device reapply eth9");
    const wire::Record event = client.event();
    ASSERT_EQ(event.Code, wire::NETCM_CLIENT_IP_CHANGE_IND);
    const auto block = client.async().block<wire::ConnectionBlock>();
    EXPECT_EQ(dotted(block.IpAddr), "10.70.0.77");
}

TEST_F(NetworkManager, s_connection_that_a_user_takes_down_ends_and_can_be_opened_again) {
    serve();
    RawClient client;
    client.open(1);
    RealNetworkManager::nmcli("connection down wired");
    expect_reason(client.event(), wire::NETCM_CLIENT_STOP_IND, Reason::kLost);
    server->program().wait_for_err("has ended: a user has disconnected it");
    client.open(1);
}

TEST_F(NetworkManager, s_device_that_goes_ends_the_call) {
    serve();
    RawClient client;
    client.open(1);
    manager->behind("ip link delete gw0");
    expect_reason(client.event(), wire::NETCM_CLIENT_STOP_IND, Reason::kNoInterface);
    server->program().wait_for_err("has ended: the device is ");
    expect_refused(client, Reason::kRefused);
}

TEST_F(NetworkManager, s_dhcp_that_fails_refuses_the_call) {
    let_dhcp_fail(2);
    serve();
    RawClient client;
    expect_refused(client, Reason::kNoAddress);
    server->program().wait_for_err("does not come up: no address could be had");
}

TEST_F(NetworkManager, s_connection_is_given_up_when_its_call_is_closed_on_the_way) {
    let_dhcp_fail(60);
    serve();
    {
        RawClient client;
        EXPECT_EQ(client.start(1).Status, NETCM_SUCCESS);
        EXPECT_TRUE(eventually([] { return RealNetworkManager::is_active("wired"); }));
    }
    EXPECT_TRUE(eventually([] { return !RealNetworkManager::is_active("wired"); }));
}

TEST_F(NetworkManager, s_connection_that_nobody_knows_is_refused_with_its_name) {
    serve(config_of("wierd"));
    RawClient client;
    expect_refused(client, Reason::kNoInterface);
    server->program().wait_for_err("\"wierd\" does not come up: it has no connection \"wierd\"");
    server->program().wait_for_err("by NetworkManager's connection \"wierd\", did not come up");
}

TEST_F(NetworkManager, that_dies_ends_its_calls_and_is_found_again) {
    serve();
    RawClient client;
    client.open(1);
    manager->kill();
    expect_reason(client.event(), wire::NETCM_CLIENT_STOP_IND, Reason::kLost);
    server->program().wait_for_err("has ended: NetworkManager has gone");
    expect_refused(client, Reason::kNoInterface);
    server->program().wait_for_err("does not come up: NetworkManager is not running");
    manager->start();
    client.open(1);
}

TEST_F(NetworkManager, that_tells_of_a_thousand_changes_costs_nobody_his_answer) {
    serve();
    RawClient client;
    client.open(1);
    const Ended flood = run({"sh", "-c",
                             "path=$(nmcli -g GENERAL.DBUS-PATH device show eth9); i=0; "
                             "while [ $i -lt 500 ]; do for on in false true; do "
                             "dbus-send --system --print-reply --dest=org.freedesktop.NetworkManager $path "
                             "org.freedesktop.DBus.Properties.Set "
                             "string:org.freedesktop.NetworkManager.Device string:Autoconnect "
                             "variant:boolean:$on || exit 1; done; "
                             "i=$((i + 25)); done"});
    EXPECT_EQ(flood.status, 0) << flood.err;
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ).Status, NETCM_SUCCESS);
    RealNetworkManager::nmcli("connection down wired");
    expect_reason(client.event(), wire::NETCM_CLIENT_STOP_IND, Reason::kLost);
}

TEST_F(NetworkManager, that_refuses_the_server_s_user_is_told_with_the_rule_that_is_missing) {
    if (run({"setpriv", "--reuid=65534", "--clear-groups", "true"}).status != 0)
        GTEST_SKIP() << "there is no other user here";
    std::ofstream("/tmp/nobody.toml") << config_of("wired");
    Program other({"setpriv", "--reuid=65534", "--clear-groups", CM_SERVER_PATH, "--db",
                   ":memory:", "--config", "/tmp/nobody.toml"});
    other.wait_for_err("listening on");
    RawClient client;
    expect_refused(client, Reason::kRefused);
    other.wait_for_err("org.freedesktop.NetworkManager.PermissionDenied");
    other.wait_for_err(
        "the server's user needs a polkit rule for org.freedesktop.NetworkManager.network-control");
}

// Connections that are made of profiles, as far as they come without a modem and a radio.
class MadeConnection : public NetworkManager {
  public:
    static std::string config_with(const std::string& profile) {
        const bool wlan = profile.find("wlan") != std::string::npos;
        return std::string("[[network]]\nbearer = \"networkmanager\"\n") + (wlan ? "kind = \"wlan\"\n" : "") +
               "[[profile]]\nname = \"Made\"\n" + profile;
    }
    // What NetworkManager is asked to make of the profile, in one line as the bus shows it. It takes the
    // settings, finds no device for them, and has nothing of it left in the end.
    std::string asked_for(const std::string& profile) {
        Program monitor({"dbus-monitor", "--system", "member='AddConnection2'"});
        monitor.wait_for_out("NameAcquired");
        serve(config_with(profile));
        RawClient client;
        expect_refused(client, Reason::kRefused);
        monitor.wait_for_out("member=AddConnection2");
        server->program().wait_for_err("does not come up: No suitable device found");
        EXPECT_TRUE(eventually([] { return !is_there("Quorvel profile 1"); }));
        const Ended served = server->stop();
        EXPECT_EQ(served.err.find("hush"), std::string::npos) << served.err;
        monitor.send_signal(SIGINT);
        std::istringstream words(monitor.wait().out);
        std::string line;
        for (std::string word; words >> word;)
            line += (line.empty() ? "" : " ") + word;
        return line;
    }
    static void expect_all(const std::string& line, std::initializer_list<const char*> parts) {
        for (const char* part : parts)
            EXPECT_NE(line.find(part), std::string::npos) << part << "\nin\n" << line;
    }
    void expect_not_supported(const std::string& profile, const std::string& why) {
        serve(config_with(profile));
        RawClient client;
        expect_refused(client, Reason::kRefused);
        server->program().wait_for_err("for the profile does not come up: " + why);
    }
};

TEST_F(MadeConnection, of_packet_data_has_access_point_account_and_name_servers) {
    const std::string line = asked_for(
        "apn = \"internet.example\"\nuser-name = \"me\"\npassword = \"hush\"\nauth-type = \"chap\"\n"
        "dns = [\"192.0.2.7\"]\ninterface = \"wwan7\"\n");
    expect_all(
        line,
        {"string \"id\" variant string \"Quorvel profile 1\"", "string \"type\" variant string \"gsm\"",
         "string \"autoconnect\" variant boolean false", "string \"interface-name\" variant string \"wwan7\"",
         "string \"apn\" variant string \"internet.example\"", "string \"username\" variant string \"me\"",
         "string \"password\" variant string \"hush\"", "string \"refuse-pap\" variant boolean true",
         "string \"method\" variant string \"auto\"", "string \"ignore-auto-dns\" variant boolean true",
         "uint32 34"});
    EXPECT_EQ(line.find("refuse-chap"), std::string::npos);
}

TEST_F(MadeConnection, of_packet_data_has_a_fixed_address) {
    expect_all(
        asked_for("apn = \"fixed\"\nstatic-address = 1\naddress = \"10.1.2.3\"\n"
                  "net-mask = \"255.255.255.0\"\ngateway = \"10.1.2.1\"\n"),
        {"string \"method\" variant string \"manual\"", "string \"address\" variant string \"10.1.2.3\"",
         "string \"prefix\" variant uint32 24", "string \"gateway\" variant string \"10.1.2.1\""});
}

TEST_F(MadeConnection, of_wi_fi_that_is_open_has_a_name) {
    expect_all(asked_for("kind = \"wlan\"\nessid = \"home\"\n"),
               {"string \"type\" variant string \"802-11-wireless\"",
                "string \"ssid\" variant array of bytes \"home\"",
                "string \"mode\" variant string \"infrastructure\""});
}

TEST_F(MadeConnection, of_wi_fi_has_wep_keys) {
    expect_all(
        asked_for("kind = \"wlan\"\nessid = \"home\"\nsecurity-mode = 3\nwep-key-1 = \"hush1\"\n"
                  "wep-key-index = 1\n"),
        {"string \"key-mgmt\" variant string \"none\"", "string \"auth-alg\" variant string \"shared\"",
         "string \"wep-tx-keyidx\" variant uint32 1", "string \"wep-key1\" variant string \"hush1\""});
}

TEST_F(MadeConnection, of_wi_fi_has_a_passphrase) {
    expect_all(
        asked_for("kind = \"wlan\"\nessid = \"home\"\nsecurity-mode = \"psk\"\npsk = \"hush-hush\"\n"),
        {"string \"key-mgmt\" variant string \"wpa-psk\"", "string \"psk\" variant string \"hush-hush\""});
}

TEST_F(MadeConnection, of_wi_fi_has_an_account) {
    expect_all(
        asked_for("kind = \"wlan\"\nessid = \"office\"\nsecurity-mode = \"eap\"\n"
                  "eap-user-name = \"me\"\neap-password = \"hush\"\neap-type = 2\n"
                  "eap-ca-certificate = \"/etc/ssl/ca.pem\"\n"),
        {"string \"key-mgmt\" variant string \"wpa-eap\"", "string \"eap\" variant array [ string \"ttls\" ]",
         "string \"identity\" variant string \"me\"", "string \"password\" variant string \"hush\"",
         "string \"ca-cert\" variant array of bytes \"file:///etc/ssl/ca.pem\" + \\0"});
}

TEST_F(MadeConnection, that_network_manager_has_nothing_for_is_refused_with_a_word) {
    expect_not_supported("kind = \"wlan\"\nessid = \"office\"\nsecurity-mode = 9\neap-type = 7\n",
                         "EAP of type 7 is not known; 0 is PEAP, 1 TLS, 2 TTLS");
    server.reset();
    expect_not_supported("apn = \"internet\"\nauth-type = 9\n", "authentication of type 9 is not known");
}

TEST_F(MadeConnection, that_a_server_before_has_left_behind_is_deleted) {
    constexpr const char* kLeft = "/tmp/connections/left.nmconnection";
    const auto leave = [&] {
        std::ofstream(kLeft) << "[connection]\nid=Quorvel profile 9\ntype=gsm\nautoconnect=false\n"
                                "[gsm]\napn=left\n[user]\norg.quorvel.cm-server=9\n";
        std::filesystem::permissions(
            kLeft, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    };
    leave();
    RealNetworkManager::nmcli("connection reload");
    EXPECT_TRUE(is_there("Quorvel profile 9"));
    serve(config_of("wired"));
    EXPECT_TRUE(eventually([] { return !is_there("Quorvel profile 9"); }));
    EXPECT_TRUE(is_there("wired"));
    // Also one that comes with a NetworkManager that starts late.
    manager->kill();
    leave();
    manager->start();
    EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(kLeft); }));
    EXPECT_FALSE(is_there("Quorvel profile 9"));
    EXPECT_TRUE(is_there("wired"));
}

// Nothing of NetworkManager's is needed for this.
TEST(WithoutNetworkManager, its_connections_are_refused_and_all_others_work) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/tmp/no-such-bus", 1);
    const CmServer server(
        "[[network]]\napn = \"internet\"\nbearer = \"networkmanager\"\nconnection = \"wired\"\n"
        "[[network]]\nbearer = \"simulated\"\n"
        "[[profile]]\nname = \"Internet\"\napn = \"internet\"\n[[profile]]\nname = \"Mail\"\napn = "
        "\"mail\"\n");
    RawClient client;
    EXPECT_EQ(client.start(1).Status, NETCM_SUCCESS);
    const wire::Record event = client.event();
    EXPECT_EQ(event.Status, cm::kStatusTransport);
    EXPECT_EQ(event.Word5, static_cast<uint32_t>(Reason::kNoInterface));
    client.open(2);
}

}  // namespace
}  // namespace quorvel::test
