// What the package's polkit rule lets the server's user do, with a real polkitd.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "networkmanager/ManagedTest.h"
#include "networkmanager/StandInModem.h"
#include "support/Eventually.h"

namespace quorvel::test {
namespace {

using cm::Reason;

constexpr const char* kPolkitd = "/usr/lib/polkit-1/polkitd";
constexpr const char* kRule = "50-quorvel.rules";
constexpr const char* kRulesFolder = "/etc/polkit-1/rules.d";

// NetworkManager asks polkitd, which knows a user "quorvel" and the rules in one folder.
class Polkit : public ManagedTest {
  public:
    void SetUp() override {
        if (access(kPolkitd, X_OK) != 0)
            GTEST_SKIP() << "polkitd is not installed";
        if (run({"setpriv", "--reuid=65533", "--clear-groups", "true"}).status != 0)
            GTEST_SKIP() << "there is no other user here";
        ManagedTest::SetUp();
        if (IsSkipped())
            return;
        manager->kill();
        make_user();
        ASSERT_EQ(mount("tmpfs", kRulesFolder, "tmpfs", 0, "mode=0755"), 0);
        std::ofstream("/tmp/nm/conf.d/polkit.conf") << "[main]\nauth-polkit=true\n";
    }
    // Both begin here, since polkitd reads its rules when it begins.
    void start_both() {
        polkitd = std::make_unique<Program>(std::vector<std::string>{kPolkitd, "--no-debug"});
        ASSERT_TRUE(eventually([] {
            return run({"dbus-send", "--system", "--print-reply", "--dest=org.freedesktop.DBus", "/",
                        "org.freedesktop.DBus.GetNameOwner", "string:org.freedesktop.PolicyKit1"})
                       .status == 0;
        }));
        manager->start();
    }
    void serve_as_quorvel(const std::string& config) {
        std::ofstream("/tmp/quorvel.toml") << config;
        quorvel = std::make_unique<Program>(
            std::vector<std::string>{"setpriv", "--reuid=65533", "--clear-groups", CM_SERVER_PATH, "--db",
                                     ":memory:", "--config", "/tmp/quorvel.toml"});
        quorvel->wait_for_err("listening on");
    }
    static void make_user() {
        std::filesystem::copy_file("/etc/passwd", "/tmp/passwd");
        std::ofstream("/tmp/passwd", std::ios::app) << "quorvel:x:65533:65533::/:/usr/sbin/nologin\n";
        ASSERT_EQ(mount("/tmp/passwd", "/etc/passwd", nullptr, MS_BIND, nullptr), 0);
    }

    std::unique_ptr<Program> polkitd;
    std::unique_ptr<Program> quorvel;
};

TEST_F(Polkit, s_rule_lets_the_server_s_user_bring_connections_up_and_make_them) {
    const std::filesystem::path shipped = NETWORK_MANAGER_FILES "/../../../cm-server/polkit";
    std::filesystem::copy_file(shipped / kRule, kRulesFolder / std::filesystem::path(kRule));
    start_both();
    serve_as_quorvel(R"(
[[network]]
apn = "made"
bearer = "networkmanager"
[[network]]
bearer = "networkmanager"
connection = "wired"
[[profile]]
name = "Made"
apn = "made"
[[profile]]
name = "Wired"
apn = "wired"
)");
    RawClient client;
    const uint32_t call = client.open(2);
    EXPECT_TRUE(RealNetworkManager::is_active("wired"));
    client.stop(call, 2);
    EXPECT_TRUE(eventually([] { return !RealNetworkManager::is_active("wired"); }));
    const StandInModem modem("eth9");
    ASSERT_TRUE(eventually([] {
        return RealNetworkManager::nmcli("-t -f DEVICE,STATE device").find("cdc-wdm7:disconnected") !=
               std::string::npos;
    }));
    client.open(1);
    EXPECT_TRUE(is_there("Quorvel profile 1"));
}

TEST_F(Polkit, refuses_the_server_s_user_without_the_rule) {
    start_both();
    serve_as_quorvel(config_of("wired"));
    RawClient client;
    expect_refused(client, Reason::kRefused);
    quorvel->wait_for_err("the server's user needs a polkit rule for org.freedesktop.NetworkManager");
}

}  // namespace
}  // namespace quorvel::test
