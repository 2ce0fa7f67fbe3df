// The operator's commands.
#include <sys/socket.h>
#include <unistd.h>

#include "server/RawClient.h"
#include "support/CmServer.h"

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
