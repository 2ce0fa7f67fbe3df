// Connections: coming up, shared, closed, killed, lost with their client.
#include <net/if.h>

#include "server/RawClient.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

constexpr const char* kProfiles = R"(
dns = ["192.0.2.53", "192.0.2.54"]
set-up-limit = 0
[[network]]
interface = "lo"
[[profile]]
name = "one"
apn = "shared"
[[profile]]
name = "two"
apn = "shared"
[[profile]]
name = "own servers"
apn = "third"
dns = ["198.51.100.1"]
[[profile]]
name = "nowhere"
interface = "absent0"
[[profile]]
name = "fifth"
[[profile]]
name = "sixth"
)";

TEST(ServerCalls, a_connection_comes_up_with_the_interface_s_own_address_and_the_configured_servers) {
    CmServer server(kProfiles);
    RawClient client;
    const wire::Record answer = client.start(1);
    EXPECT_EQ(answer.Code, wire::NETCM_CLIENT_START_RSP);
    EXPECT_EQ(answer.Status, NETCM_SUCCESS);
    EXPECT_LT(answer.CallId, 4u);
    const wire::Record response = client.async().record();
    EXPECT_EQ(response.Code, wire::NETCM_CLIENT_START_RSP);
    EXPECT_EQ(response.Word2, 1u);
    EXPECT_EQ(response.CallId, answer.CallId);
    EXPECT_EQ(response.Status, NETCM_SUCCESS);
    const auto block = client.async().block<wire::ConnectionBlock>();
    EXPECT_STREQ(block.IfaceName, "lo");
    EXPECT_EQ(dotted(block.IpAddr), "127.0.0.1");
    ASSERT_EQ(block.DnsCount, 2);
    EXPECT_EQ(dotted(block.DnsAddr[0]), "192.0.2.53");
    EXPECT_EQ(dotted(block.DnsAddr[1]), "192.0.2.54");
    EXPECT_EQ(block.HasOptAddr1, 0u);
}

TEST(ServerCalls, a_profile_s_own_name_servers_come_first) {
    CmServer server(kProfiles);
    RawClient client;
    wire::ConnectionBlock block{};
    client.open(3, &block);
    ASSERT_EQ(block.DnsCount, 1);
    EXPECT_EQ(dotted(block.DnsAddr[0]), "198.51.100.1");
}

TEST(ServerCalls, an_unknown_profile_is_refused) {
    CmServer server;
    RawClient client;
    EXPECT_EQ(client.start(99).Status, NETCM_ERR_INVALID_PROFILE);
    EXPECT_TRUE(client.async().silent());
}

TEST(ServerCalls, an_absent_interface_is_told_with_a_reason_and_frees_the_call) {
    CmServer server(kProfiles);
    RawClient client;
    const uint32_t call = client.start(4).CallId;
    const wire::Record response = client.async().record();
    EXPECT_EQ(response.Status, 21u);
    EXPECT_EQ(response.Word5, 1u);
    EXPECT_EQ(client.start(1).CallId, call);
}

TEST(ServerCalls, a_fifth_connection_finds_no_call) {
    CmServer server(kProfiles);
    RawClient client;
    for (const int32_t profile : {1, 3, 5, 6})
        client.open(profile);
    ASSERT_EQ(ask_pm(client, 1, -1, slot(pdp_profile("seventh", "seventh"))).profile, 7);
    EXPECT_EQ(client.start(7).Status, NETCM_ERR_MAX_LIMIT);
}

TEST(ServerCalls, profiles_with_the_same_access_point_share_a_call) {
    CmServer server(kProfiles);
    RawClient client;
    EXPECT_EQ(client.open(1), client.open(2));
    EXPECT_NE(client.open(3), client.open(5));
}

TEST(ServerCalls, a_profile_that_nobody_has_open_any_more_is_not_active) {
    CmServer server(kProfiles);
    RawClient first;
    RawClient second;
    const uint32_t call = first.open(1);
    EXPECT_EQ(second.open(2), call);
    first.stop(call, 1);
    second.ask(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ);
    const auto ids = second.sync().block<wire::ProfileIdBlock>();
    EXPECT_EQ(ids.Count, 1u);
    EXPECT_EQ(ids.ProfileId[0], 2);
    first.tell(wire::NETCM_CLIENT_KILL_REQ, {.Arg4 = 1});
    EXPECT_EQ(first.async().record().Status, NETCM_ERR_NOT_ACTIVE);
    EXPECT_TRUE(second.async().silent());
}

TEST(ServerCalls, clients_that_share_a_call_each_get_their_response_and_the_last_one_ends_it) {
    CmServer server;
    RawClient first;
    RawClient second;
    const uint32_t call = first.open(1);
    EXPECT_EQ(second.open(1), call);
    EXPECT_EQ(first.stop(call, 1).Status, NETCM_SUCCESS);
    EXPECT_TRUE(second.async().silent());
    const wire::Record stopped = second.stop(call, 1);
    EXPECT_EQ(stopped.Code, wire::NETCM_CLIENT_STOP_RSP);
    EXPECT_EQ(stopped.Word2, 1u);
    EXPECT_EQ(stopped.CallId, call);
    server.program().wait_for_err("call 0 has ended");
}

TEST(ServerCalls, a_stop_of_a_call_that_the_client_does_not_use_says_so) {
    CmServer server;
    RawClient client;
    EXPECT_EQ(client.stop(0, 1).Status, NETCM_ERR_NOT_ACTIVE);
    EXPECT_EQ(client.stop(77, 1).Status, NETCM_ERR_NOT_ACTIVE);
}

TEST(ServerCalls, a_client_that_dies_leaves_nothing_behind) {
    CmServer server;
    {
        RawClient doomed;
        doomed.open(1);
    }
    server.program().wait_for_err("call 0 has ended");
    RawClient client;
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ).Status, NETCM_SUCCESS);
    EXPECT_EQ(client.sync().block<wire::ProfileIdBlock>().Count, 0u);
}

TEST(ServerCalls, a_kill_answers_the_killer_and_ends_the_call_for_everybody_else) {
    CmServer server;
    RawClient killer;
    RawClient victim;
    const uint32_t call = victim.open(1);
    killer.open(1);
    killer.tell(wire::NETCM_CLIENT_KILL_REQ, {.Arg4 = 1});
    const wire::Record answer = killer.async().record();
    EXPECT_EQ(answer.Code, wire::NETCM_CLIENT_KILL_RSP);
    EXPECT_EQ(answer.Word2, 1u);
    EXPECT_EQ(answer.CallId, call);
    EXPECT_EQ(answer.Status, NETCM_SUCCESS);
    const wire::Record ended = victim.async().record();
    EXPECT_EQ(ended.Code, wire::NETCM_CLIENT_STOP_IND);
    EXPECT_EQ(ended.CallId, call);
    EXPECT_EQ(ended.Status, 22u);
}

TEST(ServerCalls, a_kill_of_a_profile_without_a_call_is_answered_too) {
    CmServer server;
    RawClient client;
    client.tell(wire::NETCM_CLIENT_KILL_REQ, {.Arg4 = 1});
    const wire::Record answer = client.async().record();
    EXPECT_EQ(answer.Code, wire::NETCM_CLIENT_KILL_RSP);
    EXPECT_EQ(answer.Word2, 1u);
    EXPECT_EQ(answer.Status, NETCM_ERR_NOT_ACTIVE);
}

TEST(ServerCalls, a_client_may_open_again_after_a_close) {
    CmServer server;
    RawClient client;
    for (int i = 0; i < 20; ++i) {
        const uint32_t call = client.open(1);
        EXPECT_EQ(client.stop(call, 1).Status, NETCM_SUCCESS);
    }
}

}  // namespace
}  // namespace quorvel::test
