// The operator's commands.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "server/RawClient.h"
#include "support/CmServer.h"
#include "support/Eventually.h"
#include "support/ServerSocket.h"

namespace quorvel::test {
namespace {

class Operator : public ::testing::Test {
  public:
    void expect_refused(const std::vector<std::string>& words, const std::string& why) {
        const Ended ended = ctl(words);
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(ended.err, "cm-server: " + why + "\n");
        EXPECT_EQ(ended.out, "");
    }
    void expect_done(const std::vector<std::string>& words, const std::string& text) {
        const Ended ended = ctl(words);
        EXPECT_EQ(ended.status, 0) << ended.err;
        EXPECT_EQ(ended.out, text + "\n");
    }

    CmServer server;
    RawClient client;
};

TEST_F(Operator, is_told_when_there_is_no_call) {
    for (const char* command : {"suspend", "resume", "stop", "kill-response"})
        expect_refused({command}, "there is no call");
    expect_refused({"ip-change", "--address", "192.0.2.1"}, "there is no call");
    expect_refused({"suspend", "2"}, "there is no call 2");
    expect_refused({"suspend", "--profile", "7"}, "there is no call of profile 7");
}

TEST_F(Operator, suspends_and_resumes_a_call) {
    const uint32_t call = client.open(1);
    expect_refused({"resume"}, "call 0 (profile 1 \"local\") is not suspended");
    expect_done({"suspend", "--profile", "1"}, "call 0 (profile 1 \"local\") is suspended");
    wire::Record event = client.async().record();
    EXPECT_EQ(event.Code, wire::NETCM_CLIENT_SUSPEND_IND);
    EXPECT_EQ(event.CallId, call);
    expect_refused({"suspend"}, "call 0 (profile 1 \"local\") is suspended already");
    expect_done({"resume", "0", "--status", "21"}, "call 0 (profile 1 \"local\") runs again");
    event = client.async().record();
    EXPECT_EQ(event.Code, wire::NETCM_CLIENT_RESUME_IND);
    EXPECT_EQ(event.Status, 21u);
}

TEST_F(Operator, s_suspend_is_told_to_a_client_that_joins_later) {
    client.open(1);
    ctl({"suspend"});
    RawClient late;
    late.open(1);
    EXPECT_EQ(late.async().record().Code, wire::NETCM_CLIENT_SUSPEND_IND);
}

TEST_F(Operator, stops_a_call_with_a_reason) {
    const uint32_t call = client.open(1);
    expect_done({"stop", "--reason", "2"},
                "call 0 (profile 1 \"local\") is ended: the network interface is down");
    const wire::Record event = client.async().record();
    EXPECT_EQ(event.Code, wire::NETCM_CLIENT_STOP_IND);
    EXPECT_EQ(event.CallId, call);
    EXPECT_EQ(event.Status, 21u);
    EXPECT_EQ(event.Word5, 2u);
    expect_refused({"stop"}, "there is no call");
}

TEST_F(Operator, may_name_reasons_statuses_and_states) {
    client.open(1);
    ctl({"suspend", "--status", "NETCM_ERR_FAILURE"});
    EXPECT_EQ(client.async().record().Status, uint32_t{NETCM_ERR_FAILURE});
    expect_done({"network-status", "--packet-data", "down", "--wifi", "ready"},
                "packet data down (1), Wi-Fi ready (3): told client 1");
    const wire::Record state = client.async().record();
    EXPECT_EQ(state.Word2, 1u);
    EXPECT_EQ(state.CallId, 3u);
    expect_done({"stop", "--status", "killed", "--reason", "no-address"},
                "call 0 (profile 1 \"local\") is ended: the network interface has no IPv4 address");
    const wire::Record end = client.async().record();
    EXPECT_EQ(end.Status, 22u);
    EXPECT_EQ(end.Word5, 3u);
    const Ended unknown = ctl({"stop", "--reason", "boredom"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_NE(unknown.err.find("\"boredom\" is neither a number nor one of none, no-interface, "),
              std::string::npos)
        << unknown.err;
}

TEST_F(Operator, changes_an_address) {
    client.open(1);
    expect_refused({"ip-change", "--address", "nonsense"},
                   "address must be an IPv4 address, not \"nonsense\"");
    expect_done({"ip-change", "--address", "192.0.2.7", "--dns", "192.0.2.1", "--interface", "other0"},
                "call 0 (profile 1 \"local\") has the address 192.0.2.7");
    const wire::Record event = client.async().record();
    EXPECT_EQ(event.Code, wire::NETCM_CLIENT_IP_CHANGE_IND);
    EXPECT_EQ(event.Word2, 1u);
    const auto block = client.async().block<wire::ConnectionBlock>();
    EXPECT_EQ(dotted(block.IpAddr), "192.0.2.7");
    EXPECT_EQ(block.DnsCount, 1);
    EXPECT_EQ(dotted(block.DnsAddr[0]), "192.0.2.1");
    EXPECT_STREQ(block.IfaceName, "other0");
}

TEST_F(Operator, tells_every_client_a_network_status) {
    RawClient other;
    const Ended ended = ctl({"network-status", "--wifi", "2"});
    EXPECT_EQ(ended.out, "packet data ready (3), Wi-Fi no-address (2): told clients 1, 2\n");
    for (RawClient* told : {&client, &other}) {
        const wire::Record event = told->async().record();
        EXPECT_EQ(event.Code, wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND);
        EXPECT_EQ(event.Word2, 3u);
        EXPECT_EQ(event.CallId, 2u);
    }
    expect_refused({"network-status", "--client", "99"}, "there is no client 99");
}

TEST_F(Operator, sends_tunnel_data_to_those_who_want_it) {
    expect_refused({"tunnel", "hello"}, "no client has registered for tunnel indications");
    RawClient other;
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_REGISTER_TUNNEL_IND_REQ).Code,
              wire::NETCM_CLIENT_REGISTER_TUNNEL_IND_RSP);
    expect_done({"tunnel", "--hex", "00ff", "--id", "5"}, "2 bytes of tunnel data: sent to client 1");
    const wire::Record event = client.async().record();
    EXPECT_EQ(event.Code, wire::NETCM_CLIENT_TUNNEL_IND);
    EXPECT_EQ(event.Word2, 2u);
    EXPECT_EQ(event.CallId, 5u);
    EXPECT_EQ(client.async().bytes(2), std::string("\0\xff", 2));
    EXPECT_TRUE(other.async().silent());
    expect_refused({"tunnel", "--hex", "0g"},
                   "hex must be hexadecimal data, two digits for each byte, not \"0g\"");
    expect_refused({"tunnel", "--hex", "012"},
                   "hex must be hexadecimal data, two digits for each byte, not \"012\"");
    client.ask(wire::NETCM_CLIENT_DEREGISTER_TUNNEL_IND_REQ);
    expect_refused({"tunnel", "hello"}, "no client has registered for tunnel indications");
}

TEST_F(Operator, sends_a_file_as_tunnel_data) {
    std::ofstream("/tmp/data", std::ios::binary) << std::string("a\0\xff", 3);
    expect_done({"tunnel", "--file", "/tmp/data", "--client", "1"},
                "3 bytes of tunnel data: sent to client 1");
    EXPECT_EQ(client.event().Word2, 3u);
    EXPECT_EQ(client.async().bytes(3), std::string("a\0\xff", 3));
    // The log keeps the beginning of what is long.
    std::ofstream("/tmp/data", std::ios::binary) << std::string(1000, 'a');
    expect_done({"tunnel", "--file", "/tmp/data", "--client", "1"},
                "1000 bytes of tunnel data: sent to client 1");
    server.program().wait_for_err("6161... (1000 bytes)");
    const Ended absent = ctl({"tunnel", "--file", "/tmp/absent"});
    EXPECT_EQ(absent.status, 2);
    EXPECT_NE(absent.err.find("/tmp/absent: cannot be read"), std::string::npos) << absent.err;
}

TEST_F(Operator, answers_a_kill_in_the_network_s_place) {
    const uint32_t call = client.open(1);
    expect_done({"kill-response", "--status", "21", "--reason", "4"},
                "the kill of call 0 (profile 1 \"local\") is answered with status transport (21)");
    wire::Record event = client.async().record();
    EXPECT_EQ(event.Code, wire::NETCM_CLIENT_KILL_RSP);
    EXPECT_EQ(event.Word2, 1u);
    EXPECT_EQ(event.CallId, call);
    EXPECT_EQ(event.Word5, 4u);
    ctl({"kill-response"});
    EXPECT_EQ(client.async().record().Status, NETCM_SUCCESS);
    expect_refused({"kill-response"}, "there is no call");
}

TEST_F(Operator, must_name_one_of_several_calls) {
    EXPECT_EQ(ask_pm(client, 1, -1, slot(pdp_profile("second", "elsewhere"))).profile, 2);
    client.open(1);
    client.open(2);
    expect_refused({"suspend"}, "there are several calls, name one of them: 0, 1");
    expect_done({"suspend", "1"}, "call 1 (profile 2 \"second\") is suspended");
    EXPECT_NE(ctl({"list"}).out.find("1     suspended  2"), std::string::npos) << ctl({"list"}).out;
}

TEST_F(Operator, lists_clients_and_calls) {
    client.open(1);
    const Ended text = ctl({"list"});
    EXPECT_NE(text.out.find("CLIENT  PROCESS"), std::string::npos);
    EXPECT_NE(text.out.find("0     up     1         local  lo         127.0.0.1  1"), std::string::npos);
    const Ended json = ctl({"list", "--json"});
    EXPECT_NE(json.out.find("\"address\": \"127.0.0.1\""), std::string::npos);
    EXPECT_NE(json.out.find("\"process\": " + std::to_string(getpid())), std::string::npos);
}

// Over the operator's socket without its command line.
class OperatorsLine : public Operator {
  public:
    OperatorsLine() : fd_(connected()) {}
    ~OperatorsLine() override { close(fd_); }

    void send(const std::string& text) { ASSERT_TRUE(write_all(fd_, text.data(), text.size())); }
    // The next answer; nothing when the server has closed.
    nlohmann::json answer() {
        std::string line;
        for (char byte = 0; byte != '\n'; line += byte)
            if (read(fd_, &byte, 1) != 1)
                return nullptr;
        return nlohmann::json::parse(line);
    }
    void expect_error(const std::string& line, const std::string& why) {
        send(line + "\n");
        const nlohmann::json said = answer();
        EXPECT_EQ(said.at("ok"), false);
        EXPECT_NE(said.value("error", "").find(why), std::string::npos) << line << "\n" << said;
    }

    int fd() const { return fd_; }

  private:
    static int connected() {
        const int fd = checked(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        // Where the launcher of the tests says.
        std::strcpy(address.sun_path, "/tmp/quorvel-run/tmp-psServSocket.control");
        checked(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), address.sun_path);
        return fd;
    }

    int fd_;
};

TEST_F(OperatorsLine, that_is_no_command_is_answered_with_what_it_must_be) {
    client.open(1);
    expect_error("nonsense", "this is no command: ");
    expect_error("[1]", "this is no command: ");
    expect_error("{}", "this is no command: ");
    expect_error(R"({"command":5})", "this names no command");
    expect_error(R"({"command":"lst"})", "there is no command \"lst\"; did you mean list?");
    expect_error(R"({"command":"suspend","call":-1})", "call must be a number from 0 to 4294967295, not -1");
    expect_error(R"({"command":"suspend","call":4294967296})", "call must be a number from 0 to 4294967295");
    expect_error(R"({"command":"suspend","status":{}})", "status must be a number or one of NETCM_SUCCESS, ");
    expect_error(R"({"command":"stop","reason":"boredom"})", "reason must be a number or one of none, ");
    expect_error(R"({"command":"network-status","wifi":"good"})", "wifi must be a number or one of absent, ");
    expect_error(R"({"command":"ip-change","address":5})", "address must be an IPv4 address, not 5");
    for (const char* dns : {R"("192.0.2.1")", R"(["x"])", R"(["192.0.2.1","192.0.2.2","192.0.2.3"])"})
        expect_error(std::string(R"({"command":"ip-change","address":"192.0.2.1","dns":)") + dns + "}",
                     "dns must be a list of IPv4 addresses, two at most, not ");
    expect_error(R"({"command":"ip-change","address":"192.0.2.1","interface":5})", "interface must be text");
    expect_error(R"({"command":"tunnel","hex":5})", "hex must be hexadecimal data, two digits for each byte");
    expect_error(R"({"command":"fault","kind":5})", "kind must be late, code, status, half, count, length");
    expect_error(R"({"command":"fault","kind":"late","event":5})", "event must be the name or the code");
    expect_error(R"({"command":"close","client":1,"socket":"both"})", "socket must be sync or async");
    expect_error(R"({"command":"restart","away":"99999999h"})", "away must be a number of milliseconds, or ");
    send(R"({"command":"stop","reason":"refused"})"
         "\n");
    EXPECT_EQ(answer().at("text"), "call 0 (profile 1 \"local\") is ended: the network has refused it");
}

TEST_F(OperatorsLine, may_hold_several_commands) {
    send("{\"command\":\"faults\"}\n{\"command\":\"payment\"}\n{\"command\":");
    EXPECT_EQ(answer().at("text"), "0 faults");
    EXPECT_EQ(answer().at("text"), "no application has made a payment setting");
    send("\"clear-faults\"}\n");
    EXPECT_EQ(answer().at("text"), "0 faults taken back");
}

TEST_F(OperatorsLine, without_an_end_is_given_up) {
    const std::string megabyte(size_t{1024} * 1024, 'x');
    for (int i = 0; i < 5; ++i)
        if (!write_all(fd(), megabyte.data(), megabyte.size()))
            break;
    EXPECT_EQ(answer(), nullptr);
    EXPECT_EQ(client.open(1), 0u);
}

TEST(OperatorOfStartingCall, has_to_wait_for_it) {
    CmServer server(R"([[network]]
bearer = "simulated"
delay = "1h"
[[profile]]
name = "slow"
apn = "far"
)");
    {
        RawClient client;
        client.start(1);
        EXPECT_EQ(ctl({"suspend"}).err, "cm-server: call 0 (profile 1 \"slow\") is not up yet\n");
        EXPECT_NE(ctl({"list"}).out.find("0     starting"), std::string::npos);
        EXPECT_EQ(ctl({"list", "--json"}).out.find("\"address\""), std::string::npos);
    }
    EXPECT_TRUE(
        eventually([] { return ctl({"network-status"}).err == "cm-server: there is no client to tell\n"; }));
}

// What listens where the server's operator socket should be, and does not speak as one.
TEST(OperatorAlone, is_told_when_what_answers_is_no_server) {
    ASSERT_EQ(mkdir("/tmp/own", 0755), 0);
    const int listening = listen_at("/tmp/own/socket.control");
    std::thread other([listening] {
        const int fd = accept(listening, nullptr, nullptr);
        char byte = 0;
        while (byte != '\n' && read(fd, &byte, 1) == 1) {
        }
        close(fd);
    });
    const Ended ended = ctl({"--socket", "/tmp/own/socket", "list"});
    other.join();
    close(listening);
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err,
              "cm-server: the server has closed the connection; only its own user and root may control it\n");
}

TEST(OperatorAlone, is_told_when_no_server_runs) {
    const Ended ended = ctl({"list"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("no operator's socket of a server on /tmp/psServSocket answers"),
              std::string::npos);
}

TEST(OperatorAlone, must_name_a_command) {
    EXPECT_NE(ctl({}).status, 0);
    const Ended help = ctl({"--help"});
    for (const char* command : {"suspend", "resume", "stop", "ip-change", "network-status", "tunnel", "list"})
        EXPECT_NE(help.out.find(command), std::string::npos) << command;
}

}  // namespace
}  // namespace quorvel::test
