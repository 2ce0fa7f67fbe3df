// Connections that follow a real link, and connections that need none.
#include <arpa/inet.h>

#include <filesystem>
#include <fstream>

#include "config/config.h"
#include "server/RawClient.h"
#include "support/CmServer.h"
#include "support/Eventually.h"
#include "support/Network.h"

namespace quorvel::test {
namespace {

void ip(const std::string& arguments) {
    const Ended ended = run({"sh", "-c", "ip " + arguments});
    ASSERT_EQ(ended.status, 0) << "ip " << arguments << "\n" << ended.err;
}

void make_link() {
    ip("link add near0 type veth peer name far0");
    ip("address add 10.9.0.1/24 dev near0");
    ip("link set near0 up");
    ip("link set far0 up");
}

constexpr const char* kOverLink = R"(
dns = ["10.9.0.53"]
[[network]]
interface = "near0"
)";

class RealLink : public ::testing::Test {
  public:
    void open() {
        wire::ConnectionBlock block{};
        call = client.open(1, &block);
        EXPECT_STREQ(block.IfaceName, "near0");
        EXPECT_EQ(dotted(block.IpAddr), "10.9.0.1");
    }
    void expect_event(uint32_t code) {
        const wire::Record event = client.event();
        EXPECT_EQ(event.Code, code);
        EXPECT_EQ(event.CallId, call);
    }

    CmServer server{kOverLink};
    RawClient client;
    uint32_t call = 0;
};

TEST_F(RealLink, is_waited_for_until_it_is_up_with_an_address) {
    EXPECT_EQ(client.start(1).Status, NETCM_SUCCESS);
    ip("link add near0 type veth peer name far0");
    ip("link set near0 up");
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ).Status, NETCM_SUCCESS);
    EXPECT_EQ(client.sync().block<wire::ProfileIdBlock>().Count, 0u);
    ip("link set far0 up");
    ip("address add 10.9.0.7/24 dev near0");
    EXPECT_EQ(client.event().Status, NETCM_SUCCESS);
    EXPECT_EQ(dotted(client.async().block<wire::ConnectionBlock>().IpAddr), "10.9.0.7");
}

TEST_F(RealLink, that_loses_its_carrier_is_suspended_until_it_is_back) {
    make_link();
    open();
    ip("link set far0 down");
    expect_event(wire::NETCM_CLIENT_SUSPEND_IND);
    ip("link set far0 up");
    expect_event(wire::NETCM_CLIENT_RESUME_IND);
}

TEST_F(RealLink, that_gets_another_address_is_told) {
    make_link();
    open();
    ip("address del 10.9.0.1/24 dev near0");
    ip("address add 10.9.0.2/24 dev near0");
    expect_event(wire::NETCM_CLIENT_IP_CHANGE_IND);
    const auto block = client.async().block<wire::ConnectionBlock>();
    EXPECT_EQ(dotted(block.IpAddr), "10.9.0.2");
    EXPECT_EQ(dotted(block.DnsAddr[0]), "10.9.0.53");
}

TEST_F(RealLink, that_gets_a_second_address_keeps_the_first) {
    make_link();
    open();
    ip("address add 10.9.0.2/24 dev near0");
    ip("link set far0 down");
    expect_event(wire::NETCM_CLIENT_SUSPEND_IND);
}

TEST_F(RealLink, that_is_removed_ends_its_connection) {
    make_link();
    open();
    ip("link del near0");
    const wire::Record event = client.event();
    EXPECT_EQ(event.Code, wire::NETCM_CLIENT_STOP_IND);
    EXPECT_EQ(event.Status, 21u);
    EXPECT_EQ(event.Word5, 1u);
}

TEST_F(RealLink, that_gets_another_name_ends_its_connection) {
    make_link();
    open();
    ip("link set near0 down");
    expect_event(wire::NETCM_CLIENT_SUSPEND_IND);
    ip("link set near0 name moved0");
    const wire::Record event = client.event();
    EXPECT_EQ(event.Code, wire::NETCM_CLIENT_STOP_IND);
    EXPECT_EQ(event.Word5, 1u);
    ip("link set moved0 name near0");
    ip("link set near0 up");
    EXPECT_TRUE(
        eventually([&] { return client.ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ).Word8 == 3u; }));
    open();
}

TEST_F(RealLink, s_status_is_told_to_every_client_when_it_changes) {
    make_link();
    const wire::Record event = client.async().record();
    EXPECT_EQ(event.Code, wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND);
    uint32_t status = event.Word2;
    while (status != 3)
        status = client.async().record().Word2;
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ).Word8, 3u);
}

TEST(ServerBearer, names_the_access_point_to_which_no_network_leads) {
    CmServer server(R"(set-up-limit = 0
[[network]]
apn = "special"
interface = "lo"
[[profile]]
name = "mobile"
apn = "ordinary"
[[profile]]
name = "wireless"
kind = "wlan"
essid = "home"
)");
    RawClient client;
    EXPECT_EQ(client.start(1).Status, NETCM_SUCCESS);
    EXPECT_EQ(client.event().Word5, 1u);
    server.program().wait_for_err(
        ", for which no network of the kind \"pdp\" leads to \"ordinary\", did not come up: there is no such "
        "network interface");
    client.start(2);
    server.program().wait_for_err(", for which no network of the kind \"wlan\" leads to \"home\"");
}

TEST(ServerBearer, takes_the_name_servers_of_a_wifi_profile) {
    CmServer server(R"([[network]]
kind = "wlan"
essid = "home"
interface = "lo"
[[profile]]
name = "wireless"
kind = "wlan"
essid = "home"
dns = ["192.0.2.3", "192.0.2.4"]
)");
    RawClient client;
    wire::ConnectionBlock block{};
    client.open(1, &block);
    EXPECT_EQ(block.DnsCount, 2);
    EXPECT_EQ(dotted(block.DnsAddr[1]), "192.0.2.4");
}

// Nothing that cannot be looked at now makes the name servers unknown that were known.
TEST(SystemNameServers, are_those_that_the_file_names) {
    constexpr const char* kFile = "/tmp/resolv.conf";
    std::ofstream(kFile) << "# nameserver 192.0.2.9\nsearch example.org\nnameserver\nnameserver fe80::1\n"
                            "nameserver 192.0.2.1\nnameserver 192.0.2.2\n";
    const auto servers = cm::system_name_servers(kFile);
    ASSERT_EQ(servers.size(), 2u);
    EXPECT_EQ(servers[0].s_addr, inet_addr("192.0.2.1"));
    std::filesystem::remove(kFile);
    std::filesystem::create_symlink(kFile, kFile);
    EXPECT_EQ(cm::system_name_servers(kFile).size(), 2u);
    std::filesystem::remove(kFile);
    EXPECT_EQ(cm::system_name_servers(kFile).size(), 0u);
}

TEST(ServerBearer, names_what_is_missing_at_the_end_of_the_limit) {
    CmServer server(std::string("set-up-limit = 0\n") + kOverLink);
    RawClient client;
    const auto reason = [&] {
        client.start(1);
        const wire::Record response = client.event();
        EXPECT_EQ(response.Status, 21u);
        return response.Word5;
    };
    EXPECT_EQ(reason(), 1u);
    ip("link add near0 type veth peer name far0");
    EXPECT_EQ(reason(), 2u);
    ip("link set near0 up");
    ip("link set far0 up");
    // The kernel notices a carrier a little later.
    ASSERT_TRUE(eventually([] { return is_running("near0"); }));
    EXPECT_EQ(reason(), 3u);
}

constexpr const char* kSimulated = R"(
[[network]]
apn = "good"
bearer = "simulated"
interface = "sim0"
address = "10.8.0.1"
[[network]]
apn = "refusing"
bearer = "simulated"
delay = 50
refusal = 5
[[network]]
apn = "unsteady"
bearer = "simulated"
lost-after = 50
[[profile]]
name = "good"
apn = "good"
[[profile]]
name = "refusing"
apn = "refusing"
[[profile]]
name = "unsteady"
apn = "unsteady"
)";

TEST(SimulatedBearer, needs_no_interface) {
    CmServer server(kSimulated);
    RawClient client;
    wire::ConnectionBlock block{};
    client.open(1, &block);
    EXPECT_STREQ(block.IfaceName, "sim0");
    EXPECT_EQ(dotted(block.IpAddr), "10.8.0.1");
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ).Word8, 3u);
}

TEST(SimulatedBearer, refuses_with_the_reason_that_is_configured) {
    CmServer server(kSimulated);
    RawClient client;
    EXPECT_EQ(client.start(2).Status, NETCM_SUCCESS);
    const wire::Record response = client.async().record();
    EXPECT_EQ(response.Status, 21u);
    EXPECT_EQ(response.Word5, 5u);
}

TEST(SimulatedBearer, loses_a_connection_after_a_while) {
    CmServer server(kSimulated);
    RawClient client;
    const uint32_t call = client.open(3);
    const wire::Record event = client.async().record();
    EXPECT_EQ(event.Code, wire::NETCM_CLIENT_STOP_IND);
    EXPECT_EQ(event.CallId, call);
    EXPECT_EQ(event.Word5, 6u);
}

}  // namespace
}  // namespace quorvel::test
