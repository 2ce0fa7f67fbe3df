// The configuration file.
#include <fstream>

#include "server/RawClient.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

constexpr const char* kFile = "/tmp/cm-server.toml";

Ended with_config(const std::string& text) {
    std::ofstream(kFile) << text;
    return run({CM_SERVER_PATH, "--db", ":memory:", "--config", kFile});
}

TEST(ServerConfig, is_checked_as_a_whole_with_line_numbers) {
    const Ended ended = with_config(R"(dns = ["192.0.2.1", "nonsense"]
colour = "blue"
[[network]]
apn = "internet"
[[profile]]
name = "a name that is far too long for its field"
kind = "wired"
[[profile]]
name = "wifi"
kind = "wlan"
security-mode = 12
essid = 5
)");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, "");
    const std::vector<std::string> faults{
        ":1: dns: this is no IPv4 address",
        ":2: unknown key \"colour\"",
        ":3: a network needs an interface",
        ":6: name must not be longer than 27 bytes",
        ":7: kind must be \"pdp\" or \"wlan\"",
        ":8: the Wi-Fi profile has no network name",
        ":12: essid must be text",
    };
    for (const std::string& fault : faults)
        EXPECT_NE(ended.err.find(kFile + fault), std::string::npos) << fault << "\nin\n" << ended.err;
}

TEST(ServerConfig, that_is_no_toml_is_told_with_its_line) {
    const Ended ended = with_config("dns = []\n[[profile]\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find(std::string(kFile) + ":2: "), std::string::npos) << ended.err;
}

TEST(ServerConfig, that_is_absent_is_told) {
    const Ended ended = run({CM_SERVER_PATH, "--config", "/tmp/absent.toml"});
    EXPECT_NE(ended.status, 0);
    EXPECT_NE(ended.err.find("/tmp/absent.toml"), std::string::npos);
}

TEST(ServerConfig, gives_factory_profiles_all_their_fields) {
    CmServer server(R"(
[[profile]]
name = "mobile"
apn = "internet"
user-name = "me"
password = "secret"
home-url = "http://home.example"
linger-time = -5
attributes = 9
dns = ["192.0.2.1"]
[[profile]]
name = "wireless"
kind = "wlan"
essid = "home"
security-mode = 4
psk = "passphrase"
interface = "wlan7"
default = true
)");
    RawClient client;
    NetPMProfile profile{};
    ask_pm(client, 4, 1).data.copy(reinterpret_cast<char*>(&profile), sizeof(profile));
    EXPECT_STREQ(profile.PdpProfInfo.AuthInfo.UserName, "me");
    EXPECT_STREQ(profile.PdpProfInfo.AuthInfo.Password, "secret");
    EXPECT_STREQ(profile.PdpProfInfo.HomeURL, "http://home.example");
    EXPECT_EQ(profile.PdpProfInfo.lingerTime, -5);
    EXPECT_EQ(profile.ProfileAttr, 9u);
    EXPECT_EQ(profile.PdpProfInfo.BStaticDnsAddr, 1u);
    ask_pm(client, 4, 2).data.copy(reinterpret_cast<char*>(&profile), sizeof(profile));
    EXPECT_EQ(profile.ProfileType, uint32_t{NETPM_PROFILE_WLAN});
    EXPECT_STREQ(profile.WlanProfInfo.security.form.psk.pskKey, "passphrase");
    EXPECT_STREQ(profile.WlanProfInfo.net_info.ifname, "wlan7");
}

TEST(ServerConfig, leads_profiles_to_networks_by_access_point) {
    CmServer server(R"(
dns = ["192.0.2.9"]
set-up-limit = 0
[[network]]
apn = "special"
interface = "lo"
dns = ["192.0.2.1"]
[[network]]
interface = "absent0"
[[profile]]
name = "special"
apn = "special"
[[profile]]
name = "ordinary"
)");
    RawClient client;
    wire::ConnectionBlock block{};
    client.open(1, &block);
    EXPECT_EQ(dotted(block.DnsAddr[0]), "192.0.2.1");
    client.start(2);
    EXPECT_EQ(client.async().record().Status, 21u);
}

}  // namespace
}  // namespace quorvel::test
