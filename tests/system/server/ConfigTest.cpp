// The configuration file.
#include <algorithm>
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

Ended check(const std::string& text) {
    std::ofstream(kFile) << text;
    return run({CM_SERVER_PATH, "--check-config", "--config", kFile});
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

TEST(ServerConfig, says_what_was_meant_and_what_cannot_work) {
    const Ended ended = with_config(R"(dns = ["192.0.2.1", "192.0.2.2", "192.0.2.3"]
log-levle = "info"
[[network]]
interface = "lo"
delay = 5
[[network]]
essid = "home"
bearer = "simulated"
refusal = 4711
[[profile]]
name = "mobile"
interface = "an-interface-of-forty-bytes-is-too-long-"
proxy = "192.0.2.1"
psk = "a passphrase"
essid = "home"
[[profile]]
name = "home"
kind = "wlan"
essid = "home"
psk = "a passphrase"
[[profile]]
name = "short"
kind = "wlan"
essid = "short"
security-mode = 4
psk = "abc"
)");
    EXPECT_EQ(ended.status, 1);
    const std::vector<std::string> faults{
        ":1: dns: two servers at most",
        ":2: unknown key \"log-levle\"; did you mean log-level?",
        ":5: delay needs bearer = \"simulated\"",
        ":7: essid needs kind = \"wlan\"",
        ":9: refusal must be 0 for none, or a reason: 1 (there is no such network interface), 2 (",
        ":12: interface must not be longer than 15 bytes",
        ":13: proxy must be an IPv4 address and a port, such as \"192.0.2.1:8080\"",
        ":14: psk needs kind = \"wlan\" and security-mode = 4, 6 or 8",
        ":15: essid needs kind = \"wlan\"",
        ":20: psk needs kind = \"wlan\" and security-mode = 4, 6 or 8",
        ":26: psk must be a passphrase of 8 to 63 characters, or 64 hexadecimal digits",
    };
    for (const std::string& fault : faults)
        EXPECT_NE(ended.err.find(kFile + fault), std::string::npos) << fault << "\nin\n" << ended.err;
    EXPECT_EQ(std::ranges::count(ended.err, '\n'), std::ssize(faults)) << ended.err;
}

TEST(ServerConfig, takes_units_and_names) {
    const Ended good = check(R"(set-up-limit = "5s"
good-copy-after = "1.5m"
[limits]
unregistered-time = "500ms"
memory = "16MB"
memory-in-all = 64
[[network]]
bearer = "simulated"
delay = "10ms"
refusal = "no-address"
[[profile]]
name = "mobile"
auth-type = "chap"
[[profile]]
name = "home"
kind = "wlan"
essid = "home"
security-mode = "psk"
psk = "a passphrase"
)");
    EXPECT_EQ(good.status, 0) << good.err;
    const Ended bad = check(R"(set-up-limit = "soon"
good-copy-after = "2h"
[limits]
memory = "much"
[[network]]
bearer = "simulated"
refusal = "boredom"
[[profile]]
name = "mobile"
auth-type = "cap"
)");
    const std::vector<std::string> faults{
        ":1: set-up-limit must be a number of milliseconds, or a number with ms, s, m, h or d: 90s, 1.5h",
        ":2: good-copy-after must be between 0ms and 3600000ms",
        ":4: memory must be a size, such as \"500kB\" or \"16MiB\"",
        ":7: refusal must be a number or one of none, no-interface, ",
        ":10: auth-type must be a number or one of none, pap, chap",
    };
    EXPECT_EQ(bad.status, 1);
    for (const std::string& fault : faults)
        EXPECT_NE(bad.err.find(kFile + fault), std::string::npos) << fault << "\nin\n" << bad.err;
    EXPECT_EQ(std::ranges::count(bad.err, '\n'), std::ssize(faults)) << bad.err;
}

TEST(ServerConfig, can_be_checked_alone) {
    std::ofstream(kFile) << "[[network]]\ninterface = \"lo\"\n";
    const Ended good = run({CM_SERVER_PATH, "--check-config", "--config", kFile});
    EXPECT_EQ(good.status, 0) << good.err;
    EXPECT_EQ(good.out, std::string(kFile) + ": no fault found; 1 network, 1 profile\n");
    std::ofstream(kFile) << "interface = \"lo\"\n";
    const Ended bad = run({CM_SERVER_PATH, "--check-config", "--config", kFile});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.err, std::string("cm-server: ") + kFile + ":1: unknown key \"interface\"\n");
    EXPECT_EQ(run({CM_SERVER_PATH, "--check-config"}).status, 1);
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
