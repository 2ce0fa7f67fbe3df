// Records that are served again.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <fstream>

#include "common/PmWire.h"
#include "server/RawClient.h"
#include "server/Recorded.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

constexpr const char* kSession = "/tmp/session.jsonl";

// A replay on the server's own path.
class Replaying {
  public:
    explicit Replaying(const std::vector<std::string>& options = {}) : program_(words(options)) {
        program_.wait_for_err("listening on");
    }
    Program& program() { return program_; }
    Ended end() {
        program_.send_signal(SIGTERM);
        return program_.wait();
    }

  private:
    static std::vector<std::string> words(const std::vector<std::string>& options) {
        std::vector<std::string> words{CM_SERVER_PATH, "replay", kSession};
        words.insert(words.end(), options.begin(), options.end());
        return words;
    }
    Program program_;
};

const std::vector<std::string> kRecording{"--record", kSession};

void open_and_set(uint32_t value) {
    RawClient client;
    wire::ConnectionBlock block{};
    EXPECT_EQ(client.open(1, &block), 0u);
    EXPECT_EQ(dotted(block.IpAddr), "127.0.0.1");
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_SET_SETTINGS_REQ, {.Arg3 = 2, .Arg4 = value}).Status, 0u);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 2}).Word2, value);
}

class Replay : public ::testing::Test {
  public:
    // Records a client that opens a profile and asks for a setting.
    void SetUp() override {
        CmServer server("", kRecording);
        open_and_set(77);
        server.stop();
    }
};

TEST_F(Replay, serves_a_session_again_answer_for_answer) {
    Replaying replay;
    for (int round = 0; round < 2; ++round)
        open_and_set(77);
    const Ended ended = replay.end();
    EXPECT_EQ(ended.status, 0);
    EXPECT_NE(ended.out.find("as in the record: 2 clients, 6 requests\n"), std::string::npos) << ended.out;
}

TEST_F(Replay, ends_when_everybody_has_come_and_gone) {
    Replaying replay({"--once"});
    open_and_set(77);
    const Ended ended = replay.program().wait();
    EXPECT_EQ(ended.status, 0) << ended.out;
}

TEST_F(Replay, says_where_the_client_asks_something_else) {
    Replaying replay;
    {
        RawClient client;
        client.start(9);
        replay.program().wait_for_out("the client asks NETCM_CLIENT_START_REQ {\"profile\":9}");
        replay.program().wait_for_out("recorded was NETCM_CLIENT_START_REQ {\"profile\":1}");
    }
    const Ended ended = replay.end();
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.out.find("otherwise than in the record, 2 times:\n"
                             "  client 1: the client asks NETCM_CLIENT_START_REQ {\"profile\":9}\n"
                             "  client 1: the client goes and leaves out 2 requests, from "
                             "NETCM_CLIENT_SET_SETTINGS_REQ {\"key\":2,\"value\":77} on\n"),
              std::string::npos)
        << ended.out;
}

TEST_F(Replay, says_what_the_client_leaves_out) {
    Replaying replay;
    {
        RawClient client;
        client.open(1);
        EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 2}).Word2, 77u);
    }
    const Ended ended = replay.end();
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.out.find("the client leaves out NETCM_CLIENT_SET_SETTINGS_REQ"), std::string::npos)
        << ended.out;
}

TEST_F(Replay, answers_what_the_record_does_not_have_with_a_failure) {
    Replaying replay;
    RawClient client;
    client.open(1);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ).Status, 1u);
    EXPECT_EQ(ask_pm(client, wire::NETPM_CLIENT_DELETE_PROFILE_REQ, 3).error, 102u);
    EXPECT_EQ(client.stop(0, 1).Status, 1u);
    // And what it has is served as before.
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_SET_SETTINGS_REQ, {.Arg3 = 2, .Arg4 = 77}).Status, 0u);
}

TEST_F(Replay, says_that_nobody_has_come) {
    const Ended ended = Replaying().end();
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.out.find("client 1: nobody has taken its part"), std::string::npos) << ended.out;
}

TEST_F(Replay, outlives_a_client_whose_text_is_no_text) {
    Replaying replay;
    RawClient client;
    client.start(1);
    const std::array<uint32_t, 5> words{1, 0, 0, sizeof(NetPMProfile) + 4, 0};
    const std::string header(reinterpret_cast<const char*>(words.data()), sizeof(words));
    client.tell(wire::NETPM_PROFILE_REQ, {}, header + slot(pdp_profile("n\xff", "internet")));
    replay.program().wait_for_out("the client asks NETPM_PROFILE_REQ");
    EXPECT_NO_THROW(RawClient());
}

// What a client of this application asks: its setting.
void play(uint32_t application) {
    RawClient client(application);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_SET_SETTINGS_REQ, {.Arg3 = 1, .Arg4 = application}).Status, 0u);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 1}).Word2, application);
}

void play_in_process(uint32_t application) {
    const pid_t child = fork();
    if (child == 0) {
        bool good = true;
        try {
            play(application);
        } catch (const std::exception&) {
            good = false;
        }
        _exit(good && !::testing::Test::HasFailure() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(ReplayMany, gives_each_process_the_part_of_its_application) {
    {
        CmServer server("", kRecording);
        for (const uint32_t application : {10U, 20U, 30U})
            play_in_process(application);
        server.stop();
    }
    Replaying replay({"--once"});
    for (const uint32_t application : {30U, 10U, 20U})
        play_in_process(application);
    const Ended ended = replay.program().wait();
    EXPECT_EQ(ended.status, 0) << ended.out;
    EXPECT_NE(ended.out.find("as in the record: 3 clients, 6 requests"), std::string::npos) << ended.out;
}

TEST(ReplayMany, serves_clients_at_the_same_time) {
    const auto both = [] {
        RawClient one(1);
        RawClient two(2);
        EXPECT_EQ(one.open(1), 0u);
        EXPECT_EQ(two.open(1), 0u);
        EXPECT_EQ(one.stop(0, 1).Status, 0u);
        EXPECT_EQ(two.stop(0, 1).Status, 0u);
    };
    {
        CmServer server("", kRecording);
        both();
        server.stop();
    }
    Replaying replay({"--speed", "0"});
    both();
    EXPECT_EQ(replay.end().status, 0);
}

TEST(ReplayMany, starts_in_the_middle_of_a_life) {
    {
        CmServer server;
        RawClient client(7);
        client.open(1);
        Program monitor({CM_SERVER_PATH, "monitor", "--record", kSession});
        server.program().wait_for_err("watches");
        client.ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ);
        server.ctl({"suspend"});
        EXPECT_EQ(client.event().Code, wire::NETCM_CLIENT_SUSPEND_IND);
        client.stop(0, 1);
        monitor.wait_for_out("NETCM_CLIENT_STOP_RSP");
        server.stop();
        monitor.wait();
    }
    EXPECT_FALSE(holds(lines_of(kSession), "request", "NETCM_CLIENT_REGISTER_REQ"));
    Replaying replay;
    {
        RawClient client(7);
        wire::ConnectionBlock block{};
        EXPECT_EQ(client.open(1, &block), 0u);
        EXPECT_EQ(dotted(block.IpAddr), "127.0.0.1");
        EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ).Code,
                  wire::NETCM_CLIENT_GET_NETWORK_STATUS_RSP);
        EXPECT_EQ(client.event().Code, wire::NETCM_CLIENT_SUSPEND_IND);
        EXPECT_EQ(client.stop(0, 1).Status, 0u);
    }
    const Ended ended = replay.end();
    EXPECT_EQ(ended.status, 0) << ended.out;
    EXPECT_NE(ended.out.find("before the record, NETCM_CLIENT_START_REQ"), std::string::npos) << ended.out;
}

TEST(ReplayMany, knows_nothing_of_secrets_that_are_left_out) {
    const auto add = [](const char* password) {
        RawClient client;
        NetPMProfile profile = pdp_profile("named", "internet");
        put(profile.PdpProfInfo.AuthInfo.Password, password);
        EXPECT_EQ(ask_pm(client, wire::NETPM_CLIENT_ADD_PROFILE_REQ, -1, slot(profile)).error, 0u);
    };
    {
        CmServer server("", kRecording);
        add("hunter2");
        server.stop();
    }
    Replaying replay;
    add("another");
    EXPECT_EQ(replay.end().status, 0);
}

TEST(ReplayMany, knows_its_timing) {
    constexpr auto kDelay = std::chrono::milliseconds(300);
    {
        CmServer server(
            "[[network]]\nbearer = \"simulated\"\ndelay = 300\n[[profile]]\nname = \"p\"\napn = \"a\"\n",
            kRecording);
        RawClient().open(1);
        server.stop();
    }
    for (const auto& [speed, factor] : {std::pair{"1", 1.0}, std::pair{"0.5", 2.0}}) {
        Replaying replay({"--speed", speed});
        const auto start = std::chrono::steady_clock::now();
        RawClient().open(1);
        EXPECT_GE(std::chrono::steady_clock::now() - start, kDelay * factor * 0.9) << speed;
        EXPECT_EQ(replay.end().status, 0);
    }
}

std::string asked(uint32_t code, uint32_t arg3 = 0, uint32_t arg4 = 0) {
    return hex(code, 0, 1, arg3, arg4, 0);
}

// A record of two clients. The first is told something before it asks; the second has another application.
void make_session() {
    Made made;
    made.note({{"note", "client"}, {"client", 1}, {"process", 1}, {"application", 1}});
    made.note({{"note", "client"}, {"client", 2}, {"process", 2}, {"application", 2}});
    made.add("event", hex(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0, 3, 0, 0, 0, 0, 0, 0, 0));
    made.add("request", asked(wire::NETCM_CLIENT_GET_SETTINGS_REQ, 1));
    made.add("answer", hex(wire::NETCM_CLIENT_GET_SETTINGS_RSP, 0, 11, 0, 0, 0, 0, 0, 0, 0));
    made.add("event", hex(wire::NETCM_CLIENT_SUSPEND_IND, 0, 1, 0, 0, 0, 0, 0, 0, 0));
    made.add("request", asked(wire::NETCM_CLIENT_GET_SETTINGS_REQ, 3));
    made.add("answer", hex(wire::NETCM_CLIENT_GET_SETTINGS_RSP, 0, 33, 0, 0, 0, 0, 0, 0, 0));
    made.add("request", asked(wire::NETCM_CLIENT_GET_SETTINGS_REQ, 2), 2);
    made.add("answer", hex(wire::NETCM_CLIENT_GET_SETTINGS_RSP, 0, 22, 0, 0, 0, 0, 0, 0, 0), 2);
    made.add("request", asked(wire::NETCM_CLIENT_START_REQ, 0, 1), 0);
    made.note({{"note", "lost"}, {"count", 4}, {"from", 0}, {"to", 0}, {"why", "for a test"}});
}

const std::vector<std::string> kMade{CM_SERVER_PATH, "replay", Made::kPath, "--speed", "0"};

TEST(ReplayOfTwo, serves_one_from_the_other_s_part_and_says_what_it_has_lost) {
    make_session();
    Program replay(kMade);
    replay.wait_for_err("listening on");
    replay.wait_for_err("the record has lost 4 entries");
    RawClient client(1);
    EXPECT_EQ(client.async().record().Word2, 3u);
    // What is left out is told as it was recorded, but for the answers.
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 3}).Word2, 33u);
    EXPECT_EQ(client.async().record().Code, wire::NETCM_CLIENT_SUSPEND_IND);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 2}).Word2, 22u);
    EXPECT_EQ(ask_app(client, {.command = 4, .id = 7}).result, 102u);
    replay.send_signal(SIGTERM);
    const Ended ended = replay.wait();
    EXPECT_EQ(ended.status, 1);
    for (const char* said :
         {"client 1: the client leaves out NETCM_CLIENT_GET_SETTINGS_REQ {\"key\":1}\n",
          "client 1: recorded was nothing more of this client\n", "client 2: nobody has taken its part\n"})
        EXPECT_NE(ended.out.find(said), std::string::npos) << said << ended.out;
}

TEST(ReplayOfTwo, ends_with_what_those_have_left_out_who_are_still_there) {
    make_session();
    Program replay(kMade);
    replay.wait_for_err("listening on");
    RawClient client(2);
    replay.wait_for_out("takes the part of client 2");
    replay.send_signal(SIGTERM);
    const std::string said = replay.wait().out;
    EXPECT_NE(said.find("client 2: the client goes and leaves out 1 requests"), std::string::npos) << said;
}

TEST(ReplayOfTwo, closes_sockets_that_do_not_say_who_they_are) {
    make_session();
    Program replay(kMade);
    replay.wait_for_err("listening on");
    RawClient client(1);
    RawSocket unknown;
    unknown.send({wire::NETCM_CLIENT_GET_SETTINGS_REQ, 0, 0, 1, 0, 0});
    EXPECT_TRUE(unknown.closed());
    RawSocket second;
    second.send({wire::NETCM_CLIENT_ASYNC_REGISTER_REQ, 0, client.id(), 0, 0, 0});
    EXPECT_TRUE(second.closed());
    RawSocket nobodys;
    nobodys.send({wire::NETCM_CLIENT_ASYNC_REGISTER_REQ, 0, 4711, 0, 0, 0});
    EXPECT_TRUE(nobodys.closed());
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 1}).Word2, 11u);
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
