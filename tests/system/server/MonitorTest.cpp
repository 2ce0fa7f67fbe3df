// The window on the wire.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <regex>

#include "common/PmWire.h"
#include "server/RawClient.h"
#include "server/Recorded.h"
#include "support/CmServer.h"
#include "support/Eventually.h"

namespace quorvel::test {
namespace {

std::string hour_of(time_t time) {
    tm parts{};
    gmtime_r(&time, &parts);
    std::array<char, 32> text{};
    strftime(text.data(), text.size(), "%FT%H", &parts);
    return text.data();
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

TEST_F(Monitor, says_when_in_utc_with_the_date) {
    setenv("TZ", "XXX-5:30", 1);
    attach();
    unsetenv("TZ");
    client.open(1);
    program->wait_for_out("NETCM_CLIENT_START_REQ");
    program->send_signal(SIGTERM);
    const std::string shown = program->wait().out;
    EXPECT_TRUE(std::regex_search(shown, std::regex(" started=[0-9]{4}-[0-9]{2}-[0-9]{2}T"))) << shown;
    const std::regex line(
        "^([0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}):[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z +1 --> NETCM_CLIENT_START_REQ",
        std::regex::multiline);
    std::smatch found;
    ASSERT_TRUE(std::regex_search(shown, found, line)) << shown;
    const time_t now = time(nullptr);
    const time_t before = now - 3600;
    EXPECT_TRUE(found[1] == hour_of(now) || found[1] == hour_of(before)) << found[1] << " " << hour_of(now);
}

TEST_F(Monitor, names_states_and_says_why_something_has_failed) {
    attach();
    client.ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ);
    program->wait_for_out("GET_NETWORK_STATUS_RSP packet-data=ready status=0 wifi=");
    client.start(77);
    program->wait_for_out("why=there is no such profile");
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

TEST_F(MonitorJson, keeps_secrets_out_of_what_is_printed_and_recorded) {
    const std::string out = printed({"--json", "--record", "/tmp/session.jsonl"});
    EXPECT_EQ(content("/tmp/session.jsonl").find(kPasswordBytes), std::string::npos);
    EXPECT_NE(content("/tmp/session.jsonl").find("\"password\":\"***\""), std::string::npos);
    EXPECT_EQ(out.find("\"bytes\""), std::string::npos);
    EXPECT_EQ(out.find(kPasswordBytes), std::string::npos);
    EXPECT_EQ(out.find("hunter2"), std::string::npos);
}

TEST_F(MonitorJson, records_secrets_when_asked_and_prints_none) {
    const std::string out = printed({"--json", "--record", "/tmp/session.jsonl", "--record-secrets"});
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
    for (const char* kept : {"\"fields\":{\"key\":4}", "\"bytes\":\"17000000"})
        EXPECT_TRUE(test::eventually([&] {
            return content("/tmp/session.jsonl").find(kept) != std::string::npos;
        })) << kept
            << " is not in " << content("/tmp/session.jsonl");
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

TEST_F(Monitor, ends_with_the_server_and_says_so) {
    attach({"--record", "/tmp/session.jsonl"});
    client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 4});
    server.program().send_signal(SIGTERM);
    const Ended ended = program->wait();
    EXPECT_EQ(ended.status, 3);
    EXPECT_NE(ended.err.find("the server has gone"), std::string::npos);
    const auto lines = lines_of("/tmp/session.jsonl");
    // What has passed right before its end is there, too.
    EXPECT_TRUE(holds(lines, "answer", "NETCM_CLIENT_GET_SETTINGS_RSP"));
    const auto ends = notes(lines, "end");
    ASSERT_EQ(ends.size(), 2u);
    EXPECT_EQ(ends[0].at("why"), "SIGTERM");
    EXPECT_EQ(ends[1].at("why"), "the server has gone");
}

TEST_F(Monitor, ends_its_record_when_it_is_asked_to_end) {
    attach({"--record", "/tmp/session.jsonl"});
    client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 4});
    program->wait_for_out("NETCM_CLIENT_GET_SETTINGS_RSP");
    program->send_signal(SIGTERM);
    EXPECT_EQ(program->wait().status, 0);
    EXPECT_EQ(lines_of("/tmp/session.jsonl").back().at("note"), "end");
}

TEST_F(Monitor, tells_who_was_there_before_it) {
    client.open(1);
    attach();
    program->wait_for_out("*** server ");
    program->wait_for_out("  1 *** client application=0 ");
    program->wait_for_out("*** call address=127.0.0.1 call=0 ");
}

TEST_F(Monitor, does_not_truncate_the_record_before_it) {
    std::ofstream("/tmp/session.jsonl") << "precious\n";
    attach({"--record", "/tmp/session.jsonl"});
    EXPECT_EQ(content("/tmp/session.jsonl.1"), "precious\n");
}

TEST_F(Monitor, says_what_it_has_lost_and_where) {
    attach({"--record", "/tmp/session.jsonl"});
    client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 4});
    program->wait_for_out("NETCM_CLIENT_GET_SETTINGS_RSP");
    program->send_signal(SIGSTOP);
    const std::string data(size_t{256} * 1024, 'x');
    for (int i = 0; i < 8; ++i) {
        client.ask(wire::NETCM_CLIENT_TUNNEL_REQ, {.Arg4 = static_cast<uint32_t>(data.size())}, data);
        client.event();
        client.async().bytes(data.size());
    }
    server.program().wait_for_err("a monitor does not keep up");
    program->send_signal(SIGCONT);
    program->wait_for_out("*** lost count=");
    client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 3});
    program->wait_for_out("NETCM_CLIENT_GET_SETTINGS_REQ key=3");
    server.stop();
    program->wait();
    const auto lines = lines_of_all("/tmp/session.jsonl");
    EXPECT_EQ(notes(lines, "lost").at(0).at("why"), "the monitor has not kept up");
    uint64_t first = 0;
    for (const json& line : lines)
        first = first == 0 ? line.value("number", uint64_t{0}) : first;
    EXPECT_GT(expect_whole(lines, first), 0u);
}

size_t times_in(std::string_view part, std::string_view text) {
    size_t times = 0;
    for (size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + part.size()))
        ++times;
    return times;
}

TEST_F(Monitor, records_whole_however_slowly_its_output_is_read) {
    // Nobody reads what it prints, and a pipe is full soon.
    ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
    const int reader = open("/tmp/pipe", O_RDWR | O_CLOEXEC);
    Program watching(
        {"/bin/sh", "-c", "exec '" CM_SERVER_PATH "' monitor --record /tmp/session.jsonl > /tmp/pipe"});
    server.program().wait_for_err("watches");
    // In pieces, so that it is its output that is slow, and not the machine.
    constexpr size_t kPieces = 10;
    for (size_t piece = 1; piece <= kPieces; ++piece) {
        for (int i = 0; i < 100; ++i)
            client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 4});
        client.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ);
        EXPECT_TRUE(eventually([piece] {
            return times_in("GET_DEFAULT_PROFILE_ID_RSP", content("/tmp/session.jsonl")) == piece;
        }));
    }
    // Nor does it wait for a reader when it is asked to end.
    watching.send_signal(SIGTERM);
    EXPECT_EQ(watching.wait().status, 0);
    const auto lines = lines_of("/tmp/session.jsonl");
    uint64_t first = 0;
    for (const json& line : lines)
        first = first == 0 ? line.value("number", uint64_t{0}) : first;
    EXPECT_EQ(expect_whole(lines, first), 0u);
    close(reader);
}

TEST(MonitorAlone, waits_for_the_server_to_come_back_when_told_to) {
    auto server = std::make_unique<CmServer>();
    Program program({CM_SERVER_PATH, "monitor", "--reconnect", "--record", "/tmp/session.jsonl"});
    server->program().wait_for_err("watches");
    { RawClient client(5); }
    server->stop();
    program.wait_for_err("the server has gone; waiting for it");
    server = std::make_unique<CmServer>();
    program.wait_for_err("the server is back");
    server->program().wait_for_err("watches");
    RawClient client(6);
    program.wait_for_out("application=6");
    program.send_signal(SIGTERM);
    EXPECT_EQ(program.wait().status, 0);
    const auto lines = lines_of("/tmp/session.jsonl");
    EXPECT_EQ(notes(lines, "server").size(), 2u);
    EXPECT_EQ(notes(lines, "server gone").size(), 1u);
    EXPECT_EQ(notes(lines, "client").size(), 2u);
}

TEST(MonitorAlone, may_be_asked_to_end_while_it_waits) {
    auto server = std::make_unique<CmServer>();
    Program program(
        {CM_SERVER_PATH, "monitor", "--reconnect", "--client", "7", "--record", "/tmp/session.jsonl"});
    server->program().wait_for_err("watches");
    { RawClient client(5); }
    server->stop();
    program.wait_for_err("the server has gone; waiting for it");
    program.send_signal(SIGTERM);
    EXPECT_EQ(program.wait().status, 0);
    const auto lines = lines_of("/tmp/session.jsonl");
    EXPECT_EQ(lines.front().at("client"), 7);
    EXPECT_EQ(lines.back().at("why"), "the monitor was asked to end");
    EXPECT_FALSE(holds(lines, "request", "NETCM_CLIENT_REGISTER_REQ"));
}

TEST_F(Monitor, may_go_without_the_server_noticing) {
    attach();
    program->send_signal(SIGKILL);
    program->wait();
    EXPECT_EQ(client.open(1), 0u);
}

}  // namespace
}  // namespace quorvel::test
