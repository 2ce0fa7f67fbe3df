// The configuration file.
#include <arpa/inet.h>

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
[[network]]
interface = "lo"
connection = "office"
[[network]]
bearer = "networkmanager"
delay = 5
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
        ":12: connection needs bearer = \"networkmanager\"",
        ":15: delay needs bearer = \"simulated\"",
        ":18: interface must not be longer than 15 bytes",
        ":19: proxy must be an IPv4 address and a port, such as \"192.0.2.1:8080\"",
        ":20: psk needs kind = \"wlan\" and security-mode = 4, 6 or 8",
        ":21: essid needs kind = \"wlan\"",
        ":26: psk needs kind = \"wlan\" and security-mode = 4, 6 or 8",
        ":32: psk must be a passphrase of 8 to 63 characters, or 64 hexadecimal digits",
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

// Each fault is told with its line, and nothing else is.
void expect_faults(const std::string& text, const std::vector<std::string>& faults) {
    const Ended ended = check(text);
    EXPECT_EQ(ended.status, 1);
    std::string expected;
    for (const std::string& fault : faults)
        expected += (expected.empty() ? "cm-server: " : "") + std::string(kFile) + fault + "\n";
    EXPECT_EQ(ended.err, expected);
}

TEST(ServerConfig, says_of_what_kind_each_value_must_be) {
    expect_faults(
        R"(dns = "192.0.2.1"
set-up-limit = -1
good-copy-after = true
log-level = "loud"
network = 5
profile = [1]
limits = "few"
)",
        {":1: dns must be a list of IPv4 addresses", ":2: set-up-limit must be between 0 and 3600000",
         ":3: good-copy-after must be a whole number", ":5: network must be written as [[network]]",
         ":4: log-level must be \"error\" or \"warning\" or \"info\" or \"debug\"",
         ":7: limits must be written as [limits]", ":6: profile must be written as [[profile]]"});
    expect_faults(
        R"([limits]
connections = 0
profiles = 1.5
unregistered-time = "1h"
memory = "0kB"
memory-in-all = -3
colour = 1
[[network]]
bearer = "simulated"
address = "192.0.2"
refusal = 7
[[network]]
bearer = "pigeon"
)",
        {":11: refusal must be 0 for none, or a reason: 1 (there is no such network interface), 2 (the "
         "network interface is down), 3 (the network interface has no IPv4 address), 4 (it took too long), 5 "
         "(the network has refused it), 6 (the network has ended it)",
         ":10: address must be an IPv4 address",
         ":13: bearer must be \"link\" or \"simulated\" or \"networkmanager\"",
         ":12: a network needs an interface", ":2: connections must be between 1 and 1000000",
         ":3: profiles must be a whole number", ":4: unregistered-time must be between 10ms and 600000ms",
         ":5: memory must be a size, such as \"500kB\" or \"16MiB\"",
         ":6: memory-in-all must be between 1 and 1048576", ":7: unknown key \"colour\""});
}

TEST(ServerConfig, says_what_each_field_of_a_profile_must_be) {
    expect_faults(
        R"([[profile]]
name = "first"
default = true
proxy = "192.0.2.1:80x"
attributes = -1
linger-time = 4294967296
address = 5
gateway = "192.0.2"
static-dns = 65536
auth-type = 9999999999
apn = "x"
[[profile]]
name = "second"
default = true
proxy = "192.0.2.1:65536"
[[profile]]
name = "third"
default = 1
proxy = "host:80"
[[profile]]
kind = "wlan"
name = "wep"
essid = "net"
security-mode = 2
wep-key-index = 4
apn = "internet"
[[profile]]
kind = "wlan"
name = "wep"
essid = "net"
security-mode = "wep"
wep-key-index = 256
eap-user-name = "me"
[[profile]]
kind = "wlan"
name = "psk"
essid = "net"
security-mode = 6
psk = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdeg"
wep-key-0 = "k"
)",
        {":5: attributes must be between 0 and 4294967295", ":7: address must be text",
         ":9: static-dns must be between 0 and 65535", ":10: auth-type must be between 0 and 4294967295",
         ":8: gateway must be an IPv4 address", ":6: linger-time must be between -2147483648 and 2147483647",
         ":4: proxy must be an IPv4 address and a port, such as \"192.0.2.1:8080\"",
         ":15: proxy must be an IPv4 address and a port, such as \"192.0.2.1:8080\"",
         ":12: there is a default profile of this kind already",
         ":19: proxy must be an IPv4 address and a port, such as \"192.0.2.1:8080\"",
         ":18: default must be true or false", ":26: apn needs kind = \"pdp\"",
         ":20: the index of the key in use is not 0 to 3", ":32: wep-key-index must be between 0 and 255",
         ":33: eap-user-name needs kind = \"wlan\" and security-mode = 5, 7 or 9",
         ":40: wep-key-0 needs kind = \"wlan\" and security-mode = 2 or 3",
         ":39: psk must be a passphrase of 8 to 63 characters, or 64 hexadecimal digits"});
}

TEST(ServerConfig, gives_wifi_profiles_their_name_servers_and_keys) {
    CmServer server(R"([[profile]]
kind = "wlan"
name = "old"
essid = "net"
security-mode = 3
wep-key-0 = "abcde"
wep-key-index = 2
dns = ["192.0.2.1", "192.0.2.2"]
[[profile]]
kind = "wlan"
name = "hex"
essid = "net"
security-mode = 8
psk = "0123456789abcdef0123456789ABCDEF0123456789abcdef0123456789abcdef"
)");
    RawClient client;
    const NetPMProfile old = profile_in(ask_pm(client, 4, 1));
    EXPECT_STREQ(old.WlanProfInfo.security.form.wep.wepKey[0], "abcde");
    EXPECT_EQ(old.WlanProfInfo.security.form.wep.wepKeyIndex, 2);
    EXPECT_EQ(old.WlanProfInfo.net_info.DnsConfigType, 1);
    EXPECT_EQ(old.WlanProfInfo.net_info.dns_addr[1].Ipv4, inet_addr("192.0.2.2"));
    EXPECT_EQ(std::string(profile_in(ask_pm(client, 4, 2)).WlanProfInfo.security.form.psk.pskKey).size(),
              64u);
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
