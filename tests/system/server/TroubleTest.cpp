// Trouble on demand.
#include <chrono>
#include <fstream>
#include <thread>

#include "server/RawClient.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

class Trouble : public ::testing::Test {
  public:
    void make(const std::vector<std::string>& words) {
        const Ended ended = ctl(words);
        EXPECT_EQ(ended.status, 0) << ended.err;
    }
    wire::Record ask_default() { return client.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ); }

    CmServer server;
    RawClient client;
};

TEST_F(Trouble, comes_as_a_wrong_code_as_often_as_asked) {
    make({"fault", "code", "118", "--times", "1"});
    EXPECT_EQ(ask_default().Code, 118u);
    EXPECT_EQ(ask_default().Code, wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP);
}

TEST_F(Trouble, comes_as_a_status_to_one_client_until_it_is_taken_back) {
    RawClient other;
    make({"fault", "status", "5", "--client", std::to_string(client.id())});
    EXPECT_EQ(ask_default().Status, 5u);
    EXPECT_EQ(ask_default().Status, 5u);
    EXPECT_EQ(other.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Status, 0u);
    EXPECT_EQ(ctl({"faults"}).out, "1 faults\nstatus 5, client 1, until it is cleared\n");
    EXPECT_EQ(ctl({"clear-faults"}).out, "1 faults taken back\n");
    EXPECT_EQ(ask_default().Status, 0u);
}

TEST_F(Trouble, goes_with_its_client) {
    uint32_t gone = 0;
    {
        RawClient other;
        gone = other.id();
        make({"fault", "status", "5", "--client", std::to_string(gone)});
    }
    server.program().wait_for_err("has gone");
    EXPECT_EQ(ctl({"faults"}).out, "0 faults\n");
    EXPECT_EQ(ctl({"fault", "status", "5", "--client", std::to_string(gone)}).err,
              "cm-server: client " + std::to_string(gone) + " has gone\n");
}

TEST_F(Trouble, comes_as_the_refusal_of_a_start_without_its_block) {
    make({"fault", "status", "21", "--event", "NETCM_CLIENT_START_RSP"});
    EXPECT_EQ(ask_default().Status, 0u);
    EXPECT_EQ(client.start(1).Status, 21u);
    EXPECT_EQ(client.async().record().Status, 21u);
    EXPECT_TRUE(client.async().silent());
}

TEST_F(Trouble, comes_late_and_keeps_the_order) {
    make({"fault", "late", "200", "--times", "1"});
    const auto before = std::chrono::steady_clock::now();
    client.tell(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ);
    client.tell(wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ);
    EXPECT_EQ(client.sync().record().Code, wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(190));
    EXPECT_EQ(client.sync().record().Code, wire::NETCM_CLIENT_GET_NETIFACE_LIST_RSP);
}

TEST_F(Trouble, comes_late_to_each_by_its_own_time) {
    make({"fault", "late", "100", "--times", "2"});
    client.tell(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const auto before = std::chrono::steady_clock::now();
    client.tell(wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ);
    EXPECT_EQ(client.sync().record().Code, wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP);
    EXPECT_EQ(client.sync().record().Code, wire::NETCM_CLIENT_GET_NETIFACE_LIST_RSP);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(95));
}

TEST_F(Trouble, comes_to_the_profile_manager_in_its_own_words) {
    make({"fault", "status", "103", "--times", "1", "--event", "NETPM_PROFILE_RSP"});
    EXPECT_EQ(ask_pm(client, 7).error, 103u);
    make({"fault", "length", "7", "--times", "1", "--event", "113"});
    client.tell(wire::NETPM_PROFILE_REQ, {}, std::string("\7\0\0\0", 4) + std::string(16, '\0'));
    EXPECT_EQ(client.sync().record().Word5, 7u);
    make({"fault", "status", "113", "--times", "1", "--event", "114"});
    EXPECT_EQ(ask_app(client, {.command = 3, .id = 7}).result, 113u);
    make({"fault", "count", "5", "--times", "1"});
    EXPECT_EQ(ask_default().Word2, 1u);  // there is nothing to count
}

TEST_F(Trouble, ends_the_server_when_its_path_is_taken_meanwhile) {
    make({"restart", "--away", "1s"});
    std::ofstream(wire::kServerPath) << "somebody else's";
    server.program().wait_for_err("cannot come back: " + std::string(wire::kServerPath) +
                                  ": something that is");
    const Ended ended = server.program().wait();
    EXPECT_EQ(ended.status, 0);
    EXPECT_NE(ended.err.find("ends on its path being taken"), std::string::npos);
}

TEST_F(Trouble, is_given_with_units_and_names) {
    EXPECT_EQ(ctl({"fault", "late", "0.2s", "--times", "1"}).out, "late by 200 ms, every client, 1 times\n");
    const auto before = std::chrono::steady_clock::now();
    ask_default();
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(190));
    EXPECT_EQ(ctl({"fault", "status", "transport", "--times", "1"}).out,
              "status transport (21), every client, 1 times\n");
    EXPECT_EQ(ask_default().Status, 21u);
    EXPECT_EQ(ctl({"fault", "late", "soon"}).err,
              "cm-server: value must be a number; of late a time such as 2s, of status its name, not "
              "\"soon\"\n");
    EXPECT_EQ(ctl({"fault", "count", "2s"}).status, 1);
    EXPECT_EQ(ctl({"restart", "--away", "soon"}).status, 2);
}

TEST_F(Trouble, of_a_scenario_is_given_with_units_and_names) {
    client.open(1);
    std::ofstream("/tmp/named.toml") << R"([[step]]
at = "0s"
command = "fault"
kind = "late"
value = "0.1s"
event = "NETCM_CLIENT_KILL_RSP"
[[step]]
at = "0.1s"
command = "stop"
reason = "no-interface"
)";
    const Ended ended = ctl({"run", "/tmp/named.toml"});
    EXPECT_EQ(ended.out,
              "     0 ms  late by 100 ms, every client, NETCM_CLIENT_KILL_RSP, until it is cleared\n"
              "   100 ms  call 0 (profile 1 \"local\") is ended: there is no such network interface\n")
        << ended.err;
    EXPECT_EQ(client.async().record().Word5, 1u);
}

TEST_F(Trouble, comes_as_half_a_record) {
    make({"fault", "half", "--times", "1"});
    client.tell(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ);
    client.sync().bytes(20);
    EXPECT_TRUE(client.sync().silent());
}

TEST_F(Trouble, comes_as_silence) {
    make({"fault", "silent", "--client", "1"});
    client.tell(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ);
    EXPECT_TRUE(client.sync().silent());
    make({"clear-faults"});
    EXPECT_EQ(ask_default().Status, 0u);
}

TEST_F(Trouble, comes_as_wrong_counts_and_lengths) {
    make({"fault", "count", "4000000000", "--times", "1"});
    client.ask(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ);
    EXPECT_EQ(client.sync().block<wire::ProfileIdBlock>().Count, 4000000000u);
    make({"fault", "length", "9", "--times", "1", "--event", "NETCM_CLIENT_TUNNEL_RSP"});
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_TUNNEL_REQ, {.Arg4 = 3}, "abc").Word2, 9u);
}

TEST_F(Trouble, closes_a_socket) {
    make({"close", "async", "--client", "1"});
    EXPECT_TRUE(client.async().closed());
    EXPECT_EQ(ask_default().Status, 0u);
    EXPECT_EQ(ctl({"close", "async", "--client", "1"}).err, "cm-server: client 1 has no async socket\n");
    make({"close", "sync", "--client", "1"});
    EXPECT_TRUE(client.sync().closed());
    EXPECT_EQ(ctl({"close", "sync", "--client", "1"}).err, "cm-server: there is no client 1\n");
}

TEST_F(Trouble, takes_the_server_away_and_brings_it_back) {
    client.open(1);
    make({"restart", "--away", "1"});
    EXPECT_TRUE(client.sync().closed());
    EXPECT_TRUE(client.async().closed());
    server.program().wait_for_err("is back");
    RawClient again;
    EXPECT_EQ(again.open(1), 0u);
}

TEST_F(Trouble, is_refused_when_it_makes_no_sense) {
    EXPECT_NE(ctl({"fault", "nonsense"}).status, 0);
    EXPECT_EQ(ctl({"fault", "late", "1", "--event", "NOTHING"}).err,
              "cm-server: event must be the name or the code of an answer or event, not \"NOTHING\"\n");
}

TEST_F(Trouble, can_be_written_down_with_its_times) {
    client.open(1);
    std::ofstream("/tmp/scenario.toml") << R"(
[[step]]
at = 0
command = "suspend"
call = 0
[[step]]
at = 20
command = "resume"
profile = 1
)";
    const Ended ended = ctl({"run", "/tmp/scenario.toml"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.out,
              "     0 ms  call 0 (profile 1 \"local\") is suspended\n"
              "    20 ms  call 0 (profile 1 \"local\") runs again\n");
    EXPECT_EQ(client.async().record().Code, wire::NETCM_CLIENT_SUSPEND_IND);
    EXPECT_EQ(client.async().record().Code, wire::NETCM_CLIENT_RESUME_IND);
}

TEST_F(Trouble, that_is_written_down_wrongly_is_told_with_its_line) {
    std::ofstream("/tmp/scenario.toml") << "[[step]]\nat = 0\n";
    EXPECT_EQ(ctl({"run", "/tmp/scenario.toml"}).err,
              "cm-server: /tmp/scenario.toml:1: a step needs a command\n");
    EXPECT_NE(ctl({"run", "/tmp/absent.toml"}).status, 0);
    const auto refusal = [](const std::string& scenario) {
        std::ofstream("/tmp/scenario.toml") << scenario;
        return ctl({"run", "/tmp/scenario.toml"}).err;
    };
    const std::string here = "cm-server: /tmp/scenario.toml:";
    EXPECT_EQ(refusal("at = 0\n"), here + " there is no [[step]]\n");
    EXPECT_EQ(refusal("step = [1]\n"), here + " there is no [[step]]\n");
    const std::string time = "a step needs a time, such as at = \"2s\", or at = MILLISECONDS\n";
    EXPECT_EQ(refusal("[[step]]\ncommand = \"list\"\n"), here + "1: " + time);
    EXPECT_EQ(refusal("[[step]]\nat = \"soon\"\ncommand = \"list\"\n"), here + "2: " + time);
    EXPECT_EQ(refusal("[[step]]\nat = -1\ncommand = \"list\"\n"), here + "2: " + time);
    EXPECT_EQ(refusal("steps = 1\n[[step]]\nat = 0\ncommand = \"list\"\n"),
              here + "1: unknown key \"steps\"; a step begins with [[step]]\n");
    EXPECT_EQ(refusal("[[step\n").substr(0, here.size() + 3), here + "1: ");
}

TEST_F(Trouble, that_is_written_down_wrongly_at_its_end_does_not_begin) {
    client.open(1);
    std::ofstream("/tmp/scenario.toml") << R"([[step]]
at = 0
command = "suspend"
[[step]]
at = 20
command = "resum"
[[step]]
at = 40
command = "stop"
raeson = 5
[[step]]
at = 60
command = "fault"
kind = "loud"
[[step]]
at = 80
command = "suspend"
times = 4
[[step]]
at = 90
command = "close"
socket = "sync"
)";
    const Ended ended = ctl({"run", "/tmp/scenario.toml"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err,
              "cm-server: /tmp/scenario.toml:6: there is no command \"resum\"; did you mean resume?\n"
              "/tmp/scenario.toml:10: unknown key \"raeson\"; did you mean reason?\n"
              "/tmp/scenario.toml:14: kind must be late, code, status, half, count, length or silent, not "
              "\"loud\"\n"
              "/tmp/scenario.toml:18: suspend takes no times\n"
              "/tmp/scenario.toml:19: close needs client\n");
    EXPECT_NE(ctl({"list"}).out.find(" up "), std::string::npos);
}

}  // namespace
}  // namespace quorvel::test
