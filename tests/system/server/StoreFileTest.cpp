// The database file: where it is, what stands in it, and what it survives.
#include <arpa/inet.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <random>

#include "common/PmWire.h"
#include "server/RawClient.h"
#include "store/database.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

const std::vector<std::string> kFile{"--db", "/tmp/store.db"};

int32_t add(RawClient& client, const NetPMProfile& profile) {
    const PmAnswer answer = ask_pm(client, 1, -1, slot(profile));
    EXPECT_EQ(answer.code, 101u);
    EXPECT_EQ(answer.error, 0u);
    return answer.profile;
}

uint32_t proper_profile(RawClient& client, uint32_t application) {
    return ask_app(client, {.command = 8, .id = application}).id;
}

bool exists(const std::string& path) {
    struct stat found {};
    return stat(path.c_str(), &found) == 0;
}

// Starts the server without --db, with these variables in place of those that say where it is.
void run_without_db(std::vector<std::string> variables) {
    std::vector<std::string> words{"env", "-u", "STATE_DIRECTORY", "-u", "XDG_STATE_HOME", "-u", "HOME"};
    words.insert(words.end(), variables.begin(), variables.end());
    words.push_back(CM_SERVER_PATH);
    Program server(words);
    server.wait_for_err("listening on");
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait().status, 0);
}

TEST(ServerStoreFile, is_in_the_state_directory_of_the_service_before_all) {
    run_without_db({"STATE_DIRECTORY=/tmp/service", "XDG_STATE_HOME=/tmp/state", "HOME=/tmp/home"});
    EXPECT_TRUE(exists("/tmp/service/cm-server.db"));
    EXPECT_FALSE(exists("/tmp/state"));
    EXPECT_FALSE(exists("/tmp/home"));
}

TEST(ServerStoreFile, is_in_the_user_s_state_directory) {
    run_without_db({"XDG_STATE_HOME=/tmp/state", "HOME=/tmp/home"});
    EXPECT_TRUE(exists("/tmp/state/quorvel/cm-server.db"));
    EXPECT_FALSE(exists("/tmp/home"));
}

TEST(ServerStoreFile, is_below_the_user_s_home_when_nothing_else_is_said) {
    run_without_db({"STATE_DIRECTORY=", "XDG_STATE_HOME=", "HOME=/tmp/home"});
    EXPECT_TRUE(exists("/tmp/home/.local/state/quorvel/cm-server.db"));
}

TEST(ServerStoreFile, is_the_machine_s_when_nobody_says_anything) {
    // The machine's own folder is not for tests.
    ASSERT_EQ(mount("tmpfs", "/var/lib", "tmpfs", 0, nullptr), 0);
    run_without_db({});
    EXPECT_TRUE(exists("/var/lib/quorvel/cm-server.db"));
}

TEST(ServerStoreFile, whose_folder_cannot_be_made_is_told) {
    const Ended ended = run({"env", "STATE_DIRECTORY=/dev/null/state", CM_SERVER_PATH});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "cm-server: cannot make /dev/null/state: Not a directory; name a file with --db\n");
}

TEST(ServerStoreFile, survives_a_restart_and_is_the_owner_s_alone) {
    int32_t id = 0;
    {
        CmServer server("", kFile);
        RawClient client;
        id = add(client, pdp_profile("kept", "apn"));
        ask_pm(client, 8, id);
        EXPECT_EQ(server.stop().status, 0);
    }
    struct stat found {};
    ASSERT_EQ(stat("/tmp/store.db", &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0600u);
    CmServer server("", kFile);
    RawClient client;
    EXPECT_EQ(ask_pm(client, 7).profile, id);
    EXPECT_STREQ(profile_in(ask_pm(client, 4, id)).ProfileName, "kept");
}

// Every kind of setting, made and read back.
struct Settings {
    int32_t pdp;
    int32_t wlan;

    static Settings make(RawClient& client) {
        const Settings made{add(client, pdp_profile("second", "apn")),
                            add(client, wlan_profile("w", "home"))};
        ask_pm(client, 8, made.pdp);
        add(client, wlan_profile("other", "elsewhere"));
        ask_pm(client, 8, made.wlan);
        ask_app(client, {.command = 1, .id = 7});
        ask_app(client, {.command = 5, .id = 7, .param = 70, .profile = 1, .with_profile = 1});
        ask_app(client, {.command = 5, .id = 7, .interfaces = {2, 1}, .with_interfaces = 1});
        ask_app(client, {.command = 1, .id = 8});
        ask_app(client, {.command = 5, .id = 8, .interfaces = {2, 0}, .with_interfaces = 1});
        ask_app(client, {.command = 10, .id = UINT32_MAX, .param = 9, .profile = 1});
        return made;
    }
};

TEST(ServerStoreFile, keeps_defaults_bindings_and_the_payment_setting) {
    Settings made{};
    {
        CmServer server("", kFile);
        RawClient client;
        made = Settings::make(client);
        EXPECT_EQ(server.stop().status, 0);
    }
    CmServer server("", kFile);
    RawClient client;
    EXPECT_EQ(ask_pm(client, 7).profile, made.pdp);
    EXPECT_EQ(proper_profile(client, 8), static_cast<uint32_t>(made.wlan));  // the default of Wi-Fi
    const AppMessage bound = ask_app(client, {.command = 4, .id = 7});
    EXPECT_EQ(bound.param, 70u);
    EXPECT_EQ(bound.profile, 1u);
    EXPECT_EQ(bound.interfaces, (std::array<uint32_t, 2>{2, 1}));
    EXPECT_EQ(ctl({"payment"}).out, "CSC VOD, payment PRE\n");
}

TEST(ServerStoreFile, restores_what_the_configuration_lists) {
    CmServer server(R"(
[[profile]]
name = "first"
apn = "one"
[[profile]]
name = "second"
apn = "two"
default = true
linger-time = 30
[[profile]]
name = "home"
kind = "wlan"
essid = "home"
security-mode = 4
psk = "a passphrase"
[[profile]]
name = "garden"
kind = "wlan"
essid = "garden"
default = true
)",
                    kFile);
    RawClient client;
    for (int32_t id = 1; id <= 4; ++id)
        EXPECT_EQ(ask_pm(client, 3, id).error, 0u);
    const int32_t added = add(client, wlan_profile("added", "home"));
    EXPECT_EQ(ask_pm(client, 7).profile, 0);
    EXPECT_EQ(ask_pm(client, 13).error, 0u);

    EXPECT_EQ(ask_pm(client, 4, added).error, 103u);
    const std::array<const char*, 4> names{"first", "second", "home", "garden"};
    for (int32_t id = 1; id <= 4; ++id)
        EXPECT_STREQ(profile_in(ask_pm(client, 4, id)).ProfileName, names.at(static_cast<size_t>(id - 1)));
    EXPECT_EQ(profile_in(ask_pm(client, 4, 2)).PdpProfInfo.lingerTime, 30);
    const NetPMProfile home = profile_in(ask_pm(client, 4, 3));
    EXPECT_EQ(home.ProfileType, uint32_t{NETPM_PROFILE_WLAN});
    EXPECT_STREQ(home.WlanProfInfo.essid, "home");
    EXPECT_STREQ(home.WlanProfInfo.security.form.psk.pskKey, "a passphrase");
    EXPECT_EQ(ask_pm(client, 7).profile, 2);
    ask_app(client, {.command = 1, .id = 7});
    ask_app(client, {.command = 5, .id = 7, .interfaces = {2, 0}, .with_interfaces = 1});
    EXPECT_EQ(proper_profile(client, 7), 4u);
    EXPECT_GT(add(client, pdp_profile("new", "apn")), added);  // no id comes twice
}

// The first row that a question gives, its values as text.
std::vector<std::string> row(cm::Database& database, const std::string& sql) {
    cm::Statement statement = database.prepare(sql);
    std::vector<std::string> values;
    if (statement.step())
        for (int column = 0; column < statement.columns(); ++column)
            values.push_back(statement.text(column));
    return values;
}

TEST(ServerStoreFile, has_the_fields_of_profiles_in_columns) {
    using Row = std::vector<std::string>;
    Settings made{};
    int32_t full = 0;
    {
        CmServer server("", kFile);
        RawClient client;
        made = Settings::make(client);
        NetPMProfile profile = pdp_profile("full", "internet");
        profile.ProfileAttr = 5;
        put(profile.PdpProfInfo.AuthInfo.Password, "secret");
        profile.PdpProfInfo.DnsAddr[0].Ipv4 = htonl(0xC0000201);
        profile.PdpProfInfo.lingerTime = -1;
        full = add(client, profile);
        EXPECT_EQ(server.stop().status, 0);
    }
    cm::Database database("/tmp/store.db");
    const auto of = [](int32_t id) { return " WHERE profile = " + std::to_string(id); };
    EXPECT_EQ(row(database, "PRAGMA user_version"), Row{"2"});
    EXPECT_EQ(row(database, "SELECT type, name, attributes FROM profile WHERE id = " + std::to_string(full)),
              (Row{"0", "full", "5"}));
    EXPECT_EQ(row(database, "SELECT apn, password, primary_dns, linger_time FROM pdp_profile" + of(full)),
              (Row{"internet", "secret", "192.0.2.1", "-1"}));
    EXPECT_EQ(row(database, "SELECT essid, security_mode, psk FROM wlan_profile" + of(made.wlan)),
              (Row{"home", "1", ""}));
    EXPECT_EQ(row(database, "SELECT count(*) FROM profile_rest"), Row{"0"});
    EXPECT_EQ(row(database, "SELECT group_concat(type || '=' || profile) FROM default_profile"),
              Row{"0=" + std::to_string(made.pdp) + ",1=" + std::to_string(made.wlan)});
    EXPECT_EQ(row(database, "SELECT param, profile, interface0, interface1 FROM application WHERE id = 7"),
              (Row{"70", "1", "2", "1"}));
    EXPECT_EQ(row(database, "SELECT csc, payment FROM payment"), (Row{"9", "1"}));
}

// A client that adds profiles until the server is killed, and knows which ones have been acknowledged.
class Adder {
  public:
    void add_one() {
        send();
        take_answer();
    }
    void send() {
        const std::array<uint32_t, 5> words{1, UINT32_MAX, 0, 972, 0};
        std::string payload(reinterpret_cast<const char*>(words.data()), sizeof(words));
        payload += slot(pdp_profile("p" + std::to_string(sent_++), "apn"));
        client_.tell(wire::NETPM_PROFILE_REQ, {}, payload);
    }
    void take_answer() {
        const wire::Record answer = client_.sync().record();
        EXPECT_EQ(answer.Code, wire::NETPM_PROFILE_RSP);
        EXPECT_EQ(answer.Word1, 101u);
        EXPECT_EQ(answer.CallId, 0u);
        EXPECT_EQ(answer.Word5, 0u);
        acknowledged_.push_back(static_cast<int32_t>(answer.Word2));
    }
    const std::vector<int32_t>& acknowledged() const { return acknowledged_; }

  private:
    RawClient client_;
    int sent_ = 0;
    std::vector<int32_t> acknowledged_;
};

class KilledServer : public ::testing::TestWithParam<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Seed, KilledServer, ::testing::Range(1u, 7u));

TEST_P(KilledServer, has_lost_nothing_that_it_has_acknowledged) {
    constexpr int kUnderWay = 20;
    std::minstd_rand random(GetParam());
    std::vector<int32_t> acknowledged;
    {
        CmServer server("", kFile);
        Adder adder;
        for (auto i = 1 + random() % 100; i > 0; --i)
            adder.add_one();
        for (int i = 0; i < kUnderWay; ++i)
            adder.send();
        for (auto i = random() % kUnderWay; i > 0; --i)
            adder.take_answer();
        server.program().send_signal(SIGKILL);
        server.program().wait();
        acknowledged = adder.acknowledged();
    }
    ASSERT_FALSE(acknowledged.empty());
    CmServer server("", kFile);
    RawClient client;
    for (size_t i = 0; i < acknowledged.size(); ++i)
        EXPECT_STREQ(profile_in(ask_pm(client, 4, acknowledged[i])).ProfileName,
                     ("p" + std::to_string(i)).c_str());
    // The server goes on where it was.
    EXPECT_GT(add(client, pdp_profile("next", "apn")), acknowledged.back());
}

TEST(ServerStoreFile, of_a_newer_server_is_refused) {
    ASSERT_EQ(CmServer("", kFile).stop().status, 0);
    // Where SQLite keeps the number that says which schema a file has.
    std::fstream file("/tmp/store.db", std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(60);
    file.write("\0\0\0\x63", 4);
    file.close();
    const Ended ended = run({CM_SERVER_PATH, "--db", "/tmp/store.db"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("the store has version 99, this server knows up to"), std::string::npos);
}

TEST(ServerStoreFile, that_cannot_be_made_is_told) {
    const Ended ended = run({CM_SERVER_PATH, "--db", "/tmp/absent/store.db"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("/tmp/absent/store.db: unable to open"), std::string::npos);
}

}  // namespace
}  // namespace quorvel::test
