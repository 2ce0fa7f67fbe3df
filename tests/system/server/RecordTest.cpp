// The server's flight recorder.
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "common/PmWire.h"
#include "server/RawClient.h"
#include "server/Recorded.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

constexpr const char* kRecord = "/tmp/flight.jsonl";

std::vector<std::string> recording(const std::string& path = kRecord,
                                   const std::vector<std::string>& more = {}) {
    std::vector<std::string> words{"--record", path};
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

void ask_often(RawClient& client, int times) {
    for (int i = 0; i < times; ++i)
        client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 1});
}

// A megabyte, which comes back.
void ask_much(RawClient& client) {
    const std::string data(size_t{1024} * 1024, 'x');
    client.ask(wire::NETCM_CLIENT_TUNNEL_REQ, {.Arg4 = static_cast<uint32_t>(data.size())}, data);
    client.event();
    client.async().bytes(data.size());
}

pid_t writer_of(CmServer& server) {
    const std::string pid = std::to_string(server.program().pid());
    std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
    pid_t child = -1;
    children >> child;
    return child;
}

TEST(Record, holds_everything_from_the_first_byte_on) {
    CmServer server("", recording());
    RawClient client(42);
    const uint32_t call = client.open(1);
    client.stop(call, 1);
    server.ctl({"list"});
    EXPECT_EQ(server.stop().status, 0);
    const auto lines = lines_of(kRecord);
    ASSERT_GT(lines.size(), 8u);
    EXPECT_EQ(lines[0].at("note"), "begin");
    EXPECT_EQ(lines[0].at("secrets"), "left out");
    EXPECT_EQ(lines[1].at("note"), "client");
    EXPECT_EQ(lines[1].at("process"), getpid());
    EXPECT_EQ(lines[1].at("application"), 42);
    EXPECT_EQ(lines[2].at("name"), "NETCM_CLIENT_REGISTER_REQ");
    EXPECT_TRUE(holds(lines, "answer", "NETCM_CLIENT_START_RSP"));
    EXPECT_TRUE(holds(lines, "event", "NETCM_CLIENT_START_RSP"));
    EXPECT_TRUE(holds(lines, "event", "NETCM_CLIENT_STOP_RSP"));
    EXPECT_EQ(notes(lines, "operator").size(), 1u);
    EXPECT_EQ(lines.back().at("note"), "end");
    EXPECT_EQ(lines.back().at("why"), "SIGTERM");
    EXPECT_EQ(expect_whole(lines, 1), 0u);
}

TEST(Record, says_why_clients_have_gone_and_who_was_turned_away) {
    CmServer server("", recording());
    {
        RawClient client;
        RawSocket stranger;
        stranger.send({wire::NETCM_CLIENT_START_REQ, 0, 0, 0, 1, 0});
        stranger.drain();
        client.sync().send({99, 0, 0, 0, 0, 0});
        client.sync().drain();
    }
    server.stop();
    const auto lines = lines_of(kRecord);
    ASSERT_EQ(notes(lines, "gone").size(), 1u);
    EXPECT_EQ(notes(lines, "gone")[0].at("why"), "unknown command 99");
    ASSERT_EQ(notes(lines, "turned away").size(), 1u);
    EXPECT_NE(notes(lines, "turned away")[0].at("why").get<std::string>().find("before it has registered"),
              std::string::npos);
}

TEST(Record, is_its_owners_alone_and_what_was_there_steps_aside) {
    for (int i = 1; i <= 2; ++i) {
        std::ofstream(kRecord) << "run " << i << "\n";
        EXPECT_EQ(chmod(kRecord, 0666), 0);
        umask(0);
        CmServer server("", recording());
        EXPECT_EQ(mode_of(kRecord), 0600u);
        EXPECT_EQ(content(std::string(kRecord) + ".1"), "run " + std::to_string(i) + "\n");
        server.stop();
        std::filesystem::remove(kRecord);
    }
    EXPECT_EQ(content(std::string(kRecord) + ".2"), "run 1\n");
}

TEST(Record, goes_on_under_the_same_name_with_every_start) {
    for (int i = 0; i < 3; ++i)
        CmServer("", recording()).stop();
    EXPECT_EQ(files_of(kRecord), 3u);
    for (const char* which : {"", ".1", ".2"})
        EXPECT_EQ(lines_of(std::string(kRecord) + which).back().at("note"), "end");
}

std::string recorded_with_password(const std::vector<std::string>& options) {
    CmServer server("", recording(kRecord, options));
    RawClient client;
    NetPMProfile profile = pdp_profile("named", "internet");
    put(profile.PdpProfInfo.AuthInfo.Password, "hunter2");
    const int32_t id = ask_pm(client, wire::NETPM_CLIENT_ADD_PROFILE_REQ, -1, slot(profile)).profile;
    ask_pm(client, wire::NETPM_CLIENT_GET_PROFILE_REQ, id);
    NetPMProfile wlan = wlan_profile("home", "net");
    // A key that is left over in a form which is not in use any more.
    put(wlan.WlanProfInfo.security.form.psk.pskKey, "hunter2");
    ask_pm(client, wire::NETPM_CLIENT_ADD_PROFILE_REQ, -1, slot(wlan));
    // Data that is no profile, where one should be.
    ask_pm(client, wire::NETPM_CLIENT_MODIFY_PROFILE_REQ, id, "hunter2");
    server.stop();
    return content(kRecord);
}

constexpr const char* kPasswordBytes = "68756e74657232";

TEST(Record, leaves_secrets_out) {
    EXPECT_EQ(recorded_with_password({}).find(kPasswordBytes), std::string::npos);
}

TEST(Record, leaves_secrets_out_of_answers_that_are_made_wrong) {
    CmServer server("", recording());
    RawClient client;
    NetPMProfile profile = pdp_profile("named", "internet");
    put(profile.PdpProfInfo.AuthInfo.Password, "hunter2");
    const int32_t id = ask_pm(client, wire::NETPM_CLIENT_ADD_PROFILE_REQ, -1, slot(profile)).profile;
    server.ctl({"fault", "code", "104"});
    client.tell(wire::NETPM_PROFILE_REQ, {},
                std::string("\4\0\0\0", 4) + std::string(reinterpret_cast<const char*>(&id), 4) +
                    std::string(12, '\0'));
    client.sync().record();
    server.stop();
    EXPECT_EQ(content(kRecord).find(kPasswordBytes), std::string::npos);
}

TEST(Record, keeps_secrets_when_asked) {
    const std::string text = recorded_with_password({"--record-secrets"});
    EXPECT_NE(text.find(kPasswordBytes), std::string::npos);
    EXPECT_NE(text.find(R"("secrets":"kept")"), std::string::npos);
}

TEST(Record, stays_within_its_size_and_says_what_has_made_room) {
    CmServer server("", recording(kRecord, {"--record-size", "64kB"}));
    RawClient client;
    ask_often(client, 1500);
    server.stop();
    uintmax_t size = 0;
    const size_t files = files_of(kRecord);
    for (size_t i = 0; i < files; ++i)
        size += std::filesystem::file_size(i == 0 ? kRecord : kRecord + ("." + std::to_string(i)));
    EXPECT_LE(size, 64u * 1024);
    EXPECT_GE(files, 2u);
    const auto lines = lines_of_all(kRecord);
    const json dropped = lines_of(kRecord)[0].at("dropped");
    EXPECT_EQ(dropped.at("from"), 1);
    EXPECT_EQ(dropped.at("count"), dropped.at("to"));
    EXPECT_EQ(expect_whole(lines, dropped.at("to").get<uint64_t>() + 1), 0u);
    EXPECT_EQ(lines.back().at("number").get<uint64_t>(), 1500u * 2 + 5);
    for (const json& begin : notes(lines, "begin"))
        EXPECT_EQ(begin.at("record"), lines_of(kRecord)[0].at("record"));
    // Whoever reads it reads all of its files, and is told what is not there any more.
    const Ended converted = run({CM_SERVER_PATH, "convert", kRecord, "/tmp/all.jsonl"});
    EXPECT_EQ(converted.status, 0) << converted.err;
    const auto all = lines_of("/tmp/all.jsonl");
    EXPECT_EQ(notes(all, "lost").at(0).at("count"), dropped.at("count"));
    EXPECT_EQ(notes(all, "lost").at(0).at("why"), "the oldest files have made room for newer ones");
    EXPECT_EQ(all.back().at("number"), lines.back().at("number"));
    const Ended older = run({CM_SERVER_PATH, "convert", std::string(kRecord) + ".1", "/tmp/older.jsonl"});
    EXPECT_EQ(older.status, 0) << older.err;
    EXPECT_LT(lines_of("/tmp/older.jsonl").size(), all.size());
    // Whoever reads only the newest file knows who is there.
    EXPECT_FALSE(notes(lines, "server").empty());
}

// A disk with little room, and a file that can be given up for more.
class LittleRoom {
  public:
    LittleRoom() {
        EXPECT_EQ(mkdir("/tmp/disk", 0700), 0);
        EXPECT_EQ(mount("tmpfs", "/tmp/disk", "tmpfs", 0, "size=1m"), 0);
        std::ofstream("/tmp/disk/filler") << std::string(size_t{960} * 1024, 'x');
    }
    ~LittleRoom() { umount2("/tmp/disk", MNT_DETACH); }
    LittleRoom(const LittleRoom&) = delete;
    LittleRoom& operator=(const LittleRoom&) = delete;
    void give_back() { EXPECT_EQ(unlink("/tmp/disk/filler"), 0); }
};

TEST(Record, goes_on_behind_a_full_disk_and_says_what_is_missing) {
    LittleRoom disk;
    CmServer server("", recording("/tmp/disk/flight.jsonl"));
    RawClient client;
    ask_often(client, 600);
    server.program().wait_for_err("No space left on device; entries are lost from number ");
    ask_often(client, 10);
    disk.give_back();
    ask_often(client, 10);
    server.program().wait_for_err("goes on; ");
    server.stop();
    const auto lines = lines_of("/tmp/disk/flight.jsonl");
    EXPECT_GT(expect_whole(lines, 1), 10u);
    EXPECT_EQ(notes(lines, "lost").at(0).at("why"), "No space left on device");
    EXPECT_EQ(lines.back().at("number").get<uint64_t>(), 620u * 2 + 5);
}

TEST(Record, of_a_monitor_goes_on_behind_a_full_disk_as_well) {
    LittleRoom disk;
    CmServer server;
    Program monitor({CM_SERVER_PATH, "monitor", "--record", "/tmp/disk/session.jsonl"});
    server.program().wait_for_err("watches");
    RawClient client;
    ask_often(client, 600);
    monitor.wait_for_err("No space left on device; entries are lost from number ");
    disk.give_back();
    ask_often(client, 10);
    monitor.wait_for_err("goes on; ");
    monitor.send_signal(SIGTERM);
    const Ended ended = monitor.wait();
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find(" entries are lost\n"), std::string::npos) << ended.err;
    const auto lines = lines_of("/tmp/disk/session.jsonl");
    EXPECT_GT(expect_whole(lines, 1), 0u);
    EXPECT_EQ(lines.back().at("note"), "end");
}

TEST(Record, never_makes_the_server_wait_and_says_what_a_slow_disk_has_cost) {
    CmServer server("", recording());
    RawClient client;
    ask_often(client, 1);
    const pid_t writer = writer_of(server);
    ASSERT_GT(writer, 0);
    // As a writer whose disk does not answer.
    ASSERT_EQ(kill(writer, SIGSTOP), 0);
    for (int i = 0; i < 5; ++i)
        ask_much(client);
    server.program().wait_for_err("the record cannot be written as fast as it grows");
    ask_often(client, 10);
    ASSERT_EQ(kill(writer, SIGCONT), 0);
    server.stop();
    const auto lines = lines_of_all(kRecord);
    EXPECT_GT(expect_whole(lines, 1), 0u);
    EXPECT_FALSE(notes(lines, "lost").empty());
    EXPECT_EQ(lines.back().at("note"), "end");
}

TEST(Record, is_whole_when_the_server_is_killed) {
    CmServer server("", recording());
    RawClient client;
    ask_often(client, 300);
    client.ask(wire::NETCM_CLIENT_SET_SETTINGS_REQ, {.Arg3 = 2, .Arg4 = 77});
    server.program().send_signal(SIGKILL);
    EXPECT_EQ(server.program().wait().status, 128 + SIGKILL);
    const auto lines = lines_of(kRecord);
    EXPECT_TRUE(holds(lines, "answer", "NETCM_CLIENT_SET_SETTINGS_RSP"));
    EXPECT_EQ(lines.back().at("why"), "the server has died");
    EXPECT_EQ(expect_whole(lines, 1), 0u);
}

TEST(Record, serves_on_when_its_writer_has_died) {
    CmServer server("", recording());
    RawClient client;
    ASSERT_EQ(kill(writer_of(server), SIGKILL), 0);
    server.program().wait_for_err("the recorder has ended; nothing is recorded any more");
    EXPECT_EQ(client.open(1), 0u);
    EXPECT_EQ(server.stop().status, 0);
}

TEST(Record, begins_another_file_when_somebody_takes_it_away) {
    CmServer server("", recording());
    RawClient client;
    ask_often(client, 1);
    std::filesystem::rename(kRecord, "/tmp/taken");
    ask_often(client, 1);
    server.program().wait_for_err("somebody has taken the file away");
    server.stop();
    EXPECT_EQ(lines_of(kRecord).back().at("note"), "end");
    EXPECT_TRUE(holds(lines_of(kRecord), "answer", "NETCM_CLIENT_GET_SETTINGS_RSP"));
}

TEST(Record, leaves_alone_what_somebody_puts_in_its_place) {
    CmServer server("", recording());
    RawClient client;
    ask_often(client, 1);
    std::filesystem::rename(kRecord, "/tmp/taken");
    std::ofstream(kRecord) << "precious\n";
    ask_often(client, 1);
    server.program().wait_for_err("somebody has taken the file away");
    server.stop();
    EXPECT_EQ(content(std::string(kRecord) + ".1"), "precious\n");
    EXPECT_EQ(lines_of(kRecord).back().at("note"), "end");
}

TEST(Record, says_what_it_has_dropped_to_have_room_at_all) {
    for (const char* which : {"", ".1", ".2"})
        std::ofstream(std::string(kRecord) + which) << std::string(60000, *which == '\0' ? '0' : which[1]);
    CmServer server("", recording(kRecord, {"--record-size", "100kB"}));
    server.program().wait_for_err("the oldest of the files that were there has gone to make room");
    server.stop();
    EXPECT_EQ(content(std::string(kRecord) + ".1").substr(0, 1), "0");
    EXPECT_FALSE(std::filesystem::exists(std::string(kRecord) + ".3"));
}

TEST(Record, says_what_is_not_sent_on_purpose) {
    CmServer server("", recording());
    RawClient client;
    server.ctl({"fault", "silent", "--times", "1"});
    client.tell(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ);
    ask_often(client, 1);
    server.stop();
    const auto silent = notes(lines_of(kRecord), "silent");
    ASSERT_EQ(silent.size(), 1u);
    EXPECT_EQ(silent[0].at("name"), "NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP");
    EXPECT_EQ(silent[0].at("client"), client.id());
}

TEST(Record, leaves_secrets_of_every_kind_out_and_nothing_else) {
    CmServer server("", recording());
    RawClient client;
    NetPMProfile wep = wlan_profile("wep", "net");
    wep.WlanProfInfo.security.sec_mode = 2;
    put(wep.WlanProfInfo.security.form.wep.wepKey[1], "hunter2");
    wep.WlanProfInfo.security.form.wep.wepKeyIndex = 1;
    NetPMProfile eap = wlan_profile("eap", "net");
    eap.WlanProfInfo.security.sec_mode = 5;
    put(eap.WlanProfInfo.security.form.eap.username, "myself");
    put(eap.WlanProfInfo.security.form.eap.password, "hunter2");
    for (const NetPMProfile& profile : {wep, eap}) {
        const int32_t id = ask_pm(client, wire::NETPM_CLIENT_ADD_PROFILE_REQ, -1, slot(profile)).profile;
        EXPECT_EQ(
            profile_in(ask_pm(client, wire::NETPM_CLIENT_GET_PROFILE_REQ, id)).WlanProfInfo.security.sec_mode,
            profile.WlanProfInfo.security.sec_mode);
    }
    server.stop();
    const std::string text = content(kRecord);
    EXPECT_EQ(text.find(kPasswordBytes), std::string::npos);
    EXPECT_NE(text.find(hex_of("myself")), std::string::npos);
}

TEST(Record, is_not_shared_by_two_servers) {
    CmServer server("", recording());
    const std::string before = content(kRecord);
    const Ended second =
        run({CM_SERVER_PATH, "--db", ":memory:", "--socket", "/tmp/other", "--record", kRecord});
    EXPECT_EQ(second.status, 1);
    EXPECT_NE(second.err.find("another program records there"), std::string::npos) << second.err;
    EXPECT_EQ(content(kRecord), before);
    EXPECT_EQ(files_of(kRecord), 1u);
    // Nor does one that cannot serve touch what is there.
    EXPECT_EQ(run({CM_SERVER_PATH, "--db", ":memory:", "--record", kRecord}).status, 1);
    EXPECT_EQ(files_of(kRecord), 1u);
}

TEST(Record, is_no_start_where_it_has_no_room_or_no_place) {
    LittleRoom disk;
    std::ofstream("/tmp/disk/more") << std::string(size_t{256} * 1024, 'x');
    const Ended full = run({CM_SERVER_PATH, "--db", ":memory:", "--record", "/tmp/disk/flight.jsonl"});
    EXPECT_EQ(full.err, "cm-server: /tmp/disk/flight.jsonl: No space left on device\n");
    EXPECT_FALSE(std::filesystem::exists("/tmp/disk/flight.jsonl"));
    // What something is mounted on cannot be moved.
    std::ofstream(kRecord) << "precious";
    ASSERT_EQ(mount(kRecord, kRecord, nullptr, MS_BIND, nullptr), 0);
    const Ended fixed = run({CM_SERVER_PATH, "--db", ":memory:", "--record", kRecord});
    EXPECT_EQ(fixed.err, std::string("cm-server: ") + kRecord +
                             ": is there, and cannot be moved aside: Device or resource busy\n");
    EXPECT_EQ(content(kRecord), "precious");
    umount2(kRecord, MNT_DETACH);
}

TEST(Record, refuses_what_it_cannot_be_written_to) {
    for (const auto& [path, why] :
         {std::pair{"/tmp", "is no ordinary file"}, std::pair{"/tmp/no/folder", "No such file"}}) {
        const Ended ended = run({CM_SERVER_PATH, "--db", ":memory:", "--record", path});
        EXPECT_EQ(ended.status, 1);
        EXPECT_NE(ended.err.find(why), std::string::npos) << ended.err;
    }
    EXPECT_EQ(run({CM_SERVER_PATH, "--db", ":memory:", "--record", kRecord, "--record-size", "5kB"}).status,
              2);
}

}  // namespace
}  // namespace quorvel::test
