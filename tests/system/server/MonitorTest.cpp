// The window on the wire.
#include <signal.h>
#include <sys/stat.h>

#include <array>
#include <fstream>
#include <sstream>

#include "common/PmWire.h"
#include "server/RawClient.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

std::string content(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class Monitor : public ::testing::Test {
  public:
    void attach(const std::vector<std::string>& options = {}) {
        std::vector<std::string> words{CM_SERVER_PATH, "monitor"};
        words.insert(words.end(), options.begin(), options.end());
        program = std::make_unique<Program>(words);
        server.program().wait_for_err("watches");
    }

    CmServer server;
    RawClient client;
    std::unique_ptr<Program> program;
};

TEST_F(Monitor, shows_requests_answers_and_events_by_name) {
    attach();
    client.open(1);
    program->wait_for_out("1 --> NETCM_CLIENT_START_REQ profile=1\n");
    program->wait_for_out("1 <-- NETCM_CLIENT_START_RSP call=0 profile=1 status=0\n");
    program->wait_for_out("1 <== NETCM_CLIENT_START_RSP call=0 connection={\"address\":\"127.0.0.1\"");
}

TEST_F(Monitor, shows_the_fields_of_blocks) {
    client.open(1);
    attach();
    for (const uint32_t command :
         {wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ, wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_REQ,
          wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ, wire::NETCM_CLIENT_GET_STAT_INFO_REQ})
        client.tell(command, {.Param = NETCM_IFACE_PDP});
    program->wait_for_out("GET_ACTIVE_PROFILE_IDS_RSP count=1 profiles=[1] status=0\n");
    program->wait_for_out("GET_ACTIVE_PROFILE_NAME_LIST_RSP count=1 names=[\"local\"] status=0\n");
    program->wait_for_out(
        "GET_ACTIVE_CONN_LIST_RSP "
        "connections=[{\"access-point\":\"local\",\"address\":\"127.0.0.1\",\"call\":0,"
        "\"interface\":\"lo\",\"profile\":1,\"suspended\":false,\"users\":1}] count=1 status=0\n");
    program->wait_for_out("GET_STAT_INFO_RSP receive-errors=0 received-bytes=");
}

TEST_F(Monitor, shows_lists_of_profiles) {
    attach();
    ask_pm(client, 10, 0, {}, 2, 16);
    program->wait_for_out("NETPM_PROFILE_RSP data={\"count\":1,\"profiles\":[1]}");
    ask_pm(client, 15, 0, {}, 2);
    program->wait_for_out("data=[{\"id\":1,\"name\":\"local\",\"network\":\"local\",\"type\":0}]");
}

TEST_F(Monitor, shows_an_async_socket_before_the_events_that_have_waited_for_it) {
    attach();
    RawSocket sync;
    sync.send({wire::NETCM_CLIENT_REGISTER_REQ, 0, 3, 0, 0, 0});
    const uint32_t id = sync.record().Word1;
    sync.send({wire::NETCM_CLIENT_TUNNEL_REQ, 0, id, 0, 0, 0});
    sync.record();
    RawSocket async;
    async.send({wire::NETCM_CLIENT_ASYNC_REGISTER_REQ, 0, id, 0, 0, 0});
    async.record();
    program->wait_for_out("<== NETCM_CLIENT_TUNNEL_RSP");
    program->send_signal(SIGTERM);
    const std::string shown = program->wait().out;
    EXPECT_LT(shown.find("2 --> NETCM_CLIENT_ASYNC_REGISTER_REQ"), shown.find("<== NETCM_CLIENT_TUNNEL_RSP"));
}

TEST_F(Monitor, masks_the_secrets_of_profiles) {
    attach();
    NetPMProfile profile = pdp_profile("named", "internet");
    put(profile.PdpProfInfo.AuthInfo.Password, "hunter2");
    ask_pm(client, 1, -1, slot(profile));
    program->wait_for_out("\"password\":\"***\"");
    program->send_signal(SIGTERM);
    EXPECT_EQ(program->wait().out.find("hunter2"), std::string::npos);
}

class MonitorJson : public Monitor {
  public:
    // What is printed, with these options, of a profile with the password "hunter2" that is added.
    std::string printed(const std::vector<std::string>& options) {
        attach(options);
        NetPMProfile profile = pdp_profile("named", "internet");
        put(profile.PdpProfInfo.AuthInfo.Password, "hunter2");
        ask_pm(client, 1, -1, slot(profile));
        program->wait_for_out("\"name\":\"NETPM_PROFILE_RSP\"");
        program->send_signal(SIGTERM);
        return program->wait().out;
    }
    static constexpr const char* kPasswordBytes = "68756e74657232";
};

TEST_F(MonitorJson, keeps_bytes_with_their_secrets_to_the_record) {
    const std::string out = printed({"--json", "--record", "/tmp/session.jsonl"});
    EXPECT_EQ(out.find("\"bytes\""), std::string::npos);
    EXPECT_EQ(out.find(kPasswordBytes), std::string::npos);
    EXPECT_EQ(out.find("hunter2"), std::string::npos);
    EXPECT_NE(content("/tmp/session.jsonl").find(kPasswordBytes), std::string::npos);
}

TEST_F(MonitorJson, prints_bytes_when_it_is_told_to_show_secrets) {
    EXPECT_NE(printed({"--json", "--show-secrets"}).find(kPasswordBytes), std::string::npos);
}

TEST_F(Monitor, names_the_commands_of_the_profile_manager) {
    attach();
    ask_pm(client, 14, 1);
    program->wait_for_out("NETPM_PROFILE_REQ arg=0 arg2=0 pm=NETPM_CLIENT_GET_PROFILE_ATTR_REQ profile=1\n");
    program->wait_for_out("pm=NETPM_CLIENT_GET_PROFILE_ATTR_REQ profile=1 value=0\n");
    ask_pm(client, 99);
    program->wait_for_out("pm=99 ");
    program->wait_for_out("pm=199 ");
}

TEST_F(Monitor, names_the_commands_about_applications) {
    attach();
    ask_app(client, {.command = wire::NETPM_APPPROF_CHECK_APP_ID, .id = 7});
    program->wait_for_out("NETPM_APPPROF_REQ app-profile=NETPM_APPPROF_CHECK_APP_ID application=7");
    program->wait_for_out("RSP app-profile=NETPM_APPPROF_CHECK_APP_ID application=0");
}

TEST_F(Monitor, shows_a_profile_whose_name_is_no_text) {
    attach();
    ask_pm(client, 1, -1, slot(pdp_profile("n\xff", "internet")));
    program->wait_for_out("\"name\":\"n\xef\xbf\xbd\"");
}

TEST_F(Monitor, prints_json_lines_and_keeps_them) {
    attach({"--json", "--record", "/tmp/session.jsonl"});
    client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 4});
    program->wait_for_out("\"name\":\"NETCM_CLIENT_GET_SETTINGS_RSP\"");
    const std::string kept = content("/tmp/session.jsonl");
    EXPECT_NE(kept.find("\"fields\":{\"key\":4}"), std::string::npos) << kept;
    EXPECT_NE(kept.find("\"bytes\":\"17000000"), std::string::npos) << kept;
    struct stat found {};
    ASSERT_EQ(stat("/tmp/session.jsonl", &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0600u);
}

TEST_F(Monitor, shows_one_client_when_asked) {
    attach({"--client", "2"});
    RawClient other;
    client.open(1);
    other.open(1);
    program->wait_for_out("2 <== NETCM_CLIENT_START_RSP");
    program->send_signal(SIGTERM);
    EXPECT_EQ(program->wait().out.find(" 1 "), std::string::npos);
}

TEST_F(Monitor, ends_with_the_server) {
    attach();
    server.program().send_signal(SIGTERM);
    EXPECT_EQ(program->wait().status, 0);
}

TEST_F(Monitor, may_go_without_the_server_noticing) {
    attach();
    program->send_signal(SIGKILL);
    program->wait();
    EXPECT_EQ(client.open(1), 0u);
}

class Replay : public ::testing::Test {
  public:
    // Records a client that opens a profile and asks for a setting.
    void SetUp() override {
        CmServer server;
        Program monitor({CM_SERVER_PATH, "monitor", "--record", kSession});
        server.program().wait_for_err("watches");
        RawClient client;
        client.open(1);
        client.ask(wire::NETCM_CLIENT_SET_SETTINGS_REQ, {.Arg3 = 2, .Arg4 = 77});
        client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 2});
        monitor.wait_for_out("NETCM_CLIENT_GET_SETTINGS_RSP");
        server.stop();
    }

    static constexpr const char* kSession = "/tmp/session.jsonl";
};

TEST_F(Replay, serves_a_session_again_answer_for_answer) {
    Program replay({CM_SERVER_PATH, "replay", kSession});
    replay.wait_for_err("listening on");
    for (int round = 0; round < 2; ++round) {
        RawClient client;
        wire::ConnectionBlock block{};
        EXPECT_EQ(client.open(1, &block), 0u);
        EXPECT_EQ(dotted(block.IpAddr), "127.0.0.1");
        EXPECT_EQ(client.ask(wire::NETCM_CLIENT_SET_SETTINGS_REQ, {.Arg3 = 2, .Arg4 = 77}).Status, 0u);
        EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 2}).Word2, 77u);
    }
    replay.send_signal(SIGTERM);
    const Ended ended = replay.wait();
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out.find("recorded was"), std::string::npos) << ended.out;
}

TEST_F(Replay, says_where_the_client_asks_something_else) {
    Program replay({CM_SERVER_PATH, "replay", kSession});
    replay.wait_for_err("listening on");
    RawClient client;
    client.start(9);
    replay.wait_for_out("the client asks NETCM_CLIENT_START_REQ {\"profile\":9}");
    replay.wait_for_out("recorded was NETCM_CLIENT_START_REQ {\"profile\":1}");
}

TEST_F(Replay, outlives_a_client_whose_text_is_no_text) {
    Program replay({CM_SERVER_PATH, "replay", kSession});
    replay.wait_for_err("listening on");
    RawClient client;
    client.start(1);
    const std::array<uint32_t, 5> words{1, 0, 0, sizeof(NetPMProfile) + 4, 0};
    const std::string header(reinterpret_cast<const char*>(words.data()), sizeof(words));
    client.tell(wire::NETPM_PROFILE_REQ, {}, header + slot(pdp_profile("n\xff", "internet")));
    replay.wait_for_out("the client asks NETPM_PROFILE_REQ");
    EXPECT_NO_THROW(RawClient());
}

TEST(ReplayAlone, refuses_what_is_no_session) {
    std::ofstream("/tmp/nonsense") << "{}\nnonsense\n";
    const Ended ended = run({CM_SERVER_PATH, "replay", "/tmp/nonsense"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("/tmp/nonsense:1: "), std::string::npos) << ended.err;
    EXPECT_EQ(run({CM_SERVER_PATH, "replay", "/tmp/absent"}).status, 1);
}

}  // namespace
}  // namespace quorvel::test
