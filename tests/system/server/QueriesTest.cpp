// What a client can ask.
#include "server/RawClient.h"
#include "support/CmServer.h"
#include "support/Network.h"

namespace quorvel::test {
namespace {

class ServerAnswers : public ::testing::Test {
  public:
    CmServer server;
    RawClient client;
};

TEST_F(ServerAnswers, the_default_profile) {
    const wire::Record answer = client.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ);
    EXPECT_EQ(answer.Code, wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP);
    EXPECT_EQ(answer.Word2, 1u);
    EXPECT_EQ(answer.Status, NETCM_SUCCESS);
}

TEST_F(ServerAnswers, ids_and_names_of_active_profiles) {
    client.open(1);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ).Code,
              wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_RSP);
    const auto ids = client.sync().block<wire::ProfileIdBlock>();
    EXPECT_EQ(ids.Count, 1u);
    EXPECT_EQ(ids.ProfileId[0], 1);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_REQ).Code,
              wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_RSP);
    const auto names = client.sync().block<wire::ProfileNameBlock>();
    EXPECT_EQ(names.Count, 1u);
    EXPECT_STREQ(names.Name[0], "local");
}

TEST_F(ServerAnswers, active_connections_of_the_interface_asked_for) {
    client.open(1);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ, {.Param = NETCM_IFACE_PDP}).Code,
              wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_RSP);
    const auto list = client.sync().block<wire::ActiveConnectionBlock>();
    EXPECT_EQ(list.Count, 1u);
    EXPECT_EQ(list.Connection[0].ProfileId, 1);
    EXPECT_STREQ(list.Connection[0].Apn, "local");
    client.ask(wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ, {.Param = NETCM_IFACE_WIFI});
    EXPECT_EQ(client.sync().block<wire::ActiveConnectionBlock>().Count, 0u);
}

wire::StatisticsBlock statistics(RawClient& client) {
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_STAT_INFO_REQ).Code, wire::NETCM_CLIENT_GET_STAT_INFO_RSP);
    return client.sync().block<wire::StatisticsBlock>();
}

TEST_F(ServerAnswers, statistics_of_what_has_gone_over_the_interface) {
    send_over_loopback(500);
    const uint32_t call = client.open(1);
    EXPECT_EQ(statistics(client).Counter[0], 0u);
    send_over_loopback(1000);
    const auto counted = statistics(client);
    EXPECT_GE(counted.Counter[0], 1000u);
    EXPECT_GE(counted.Counter[1], 1000u);
    EXPECT_GE(counted.Counter[2], 1u);
    client.stop(call, 1);
    send_over_loopback(5000);
    EXPECT_LT(statistics(client).Counter[0], 5000u);
    EXPECT_GE(statistics(client).Counter[0], 1000u);
}

TEST_F(ServerAnswers, statistics_after_a_reset_of_the_level_asked_for) {
    client.open(1);
    send_over_loopback(1000);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_RESET_STAT_INFO_REQ, {.Arg4 = 1}).Status, NETCM_SUCCESS);
    auto counted = statistics(client);
    EXPECT_EQ(counted.Counter[0], 0u);
    EXPECT_GE(counted.Counter[2], 1u);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_RESET_STAT_INFO_REQ, {.Arg4 = 0}).Status, NETCM_SUCCESS);
    EXPECT_EQ(statistics(client).Counter[2], 0u);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_RESET_STAT_INFO_REQ, {.Arg4 = 5}).Status,
              NETCM_ERR_INVALID_PARAM);
}

TEST_F(ServerAnswers, statistics_without_what_each_level_resets) {
    client.open(1);
    const auto reset = [&](uint32_t level) {
        send_over_loopback(1000);
        EXPECT_EQ(client.ask(wire::NETCM_CLIENT_RESET_STAT_INFO_REQ, {.Arg4 = level}).Status, NETCM_SUCCESS);
        return statistics(client);
    };
    auto counted = reset(2);
    EXPECT_GE(counted.Counter[0], 1000u);
    EXPECT_EQ(counted.Counter[2], 0u);
    counted = reset(3);
    EXPECT_GE(counted.Counter[1], 1000u);
    EXPECT_GE(counted.Counter[3], 1u);
    EXPECT_EQ(counted.Counter[4], 0u);
    counted = reset(4);
    for (size_t i = 0; i < 4; ++i)
        EXPECT_EQ(counted.Counter[i], 0u) << i;
}

TEST_F(ServerAnswers, the_state_of_the_real_interfaces) {
    const wire::Record status = client.ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ);
    EXPECT_EQ(status.Code, wire::NETCM_CLIENT_GET_NETWORK_STATUS_RSP);
    EXPECT_EQ(status.Word8, 3u);
    EXPECT_EQ(status.Word7, 0u);
    const wire::Record list = client.ask(wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ);
    EXPECT_EQ(list.Code, wire::NETCM_CLIENT_GET_NETIFACE_LIST_RSP);
    EXPECT_EQ(list.Word2, uint32_t{NETCM_IFACE_PDP});
}

TEST_F(ServerAnswers, settings_as_another_client_has_set_them) {
    RawClient other;
    EXPECT_EQ(other.ask(wire::NETCM_CLIENT_SET_SETTINGS_REQ, {.Arg3 = 4, .Arg4 = 12}).Status, NETCM_SUCCESS);
    const wire::Record answer = client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 4});
    EXPECT_EQ(answer.Code, wire::NETCM_CLIENT_GET_SETTINGS_RSP);
    EXPECT_EQ(answer.Word2, 12u);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 0}).Word2, 0u);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 5}).Status, NETCM_ERR_INVALID_PARAM);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_SET_SETTINGS_REQ, {.Arg3 = 5}).Status, NETCM_ERR_INVALID_PARAM);
}

TEST_F(ServerAnswers, the_packet_data_state_of_a_connection) {
    const auto get = [&] { return client.ask(wire::NETCM_CLIENT_GET_PACKET_DATA_STATE_REQ, {.Arg4 = 1}); };
    const auto set = [&](uint32_t state) {
        return client.ask(wire::NETCM_CLIENT_SET_PACKET_DATA_STATE_REQ, {.Arg3 = state, .Arg4 = 1}).Status;
    };
    EXPECT_EQ(get().Status, NETCM_ERR_NOT_ACTIVE);
    EXPECT_EQ(set(2), NETCM_ERR_NOT_ACTIVE);
    client.open(1);
    EXPECT_EQ(get().Word2, 1u);
    EXPECT_EQ(set(3), NETCM_SUCCESS);
    EXPECT_EQ(get().Word2, 3u);
    EXPECT_EQ(set(0), NETCM_ERR_INVALID_PARAM);
    EXPECT_EQ(set(4), NETCM_ERR_INVALID_PARAM);
}

TEST_F(ServerAnswers, the_packet_data_state_of_the_next_connection_anew) {
    const auto get = [&] { return client.ask(wire::NETCM_CLIENT_GET_PACKET_DATA_STATE_REQ, {.Arg4 = 1}); };
    const uint32_t call = client.open(1);
    client.ask(wire::NETCM_CLIENT_SET_PACKET_DATA_STATE_REQ, {.Arg3 = 3, .Arg4 = 1});
    EXPECT_EQ(get().Word2, 3u);
    client.stop(call, 1);
    client.open(1);
    EXPECT_EQ(get().Word2, 1u);
}

TEST_F(ServerAnswers, tunnel_data_with_the_same_data_and_an_id_for_each_request) {
    const std::string data("a\0b", 3);
    const wire::Record first = client.ask(wire::NETCM_CLIENT_TUNNEL_REQ, {.Arg3 = 9, .Arg4 = 3}, data);
    EXPECT_EQ(first.Code, wire::NETCM_CLIENT_TUNNEL_RSP);
    EXPECT_EQ(first.Status, NETCM_SUCCESS);
    const wire::Record response = client.async().record();
    EXPECT_EQ(response.Code, wire::NETCM_CLIENT_TUNNEL_RSP);
    EXPECT_EQ(response.Word2, 3u);
    EXPECT_EQ(response.CallId, first.CallId);
    EXPECT_EQ(client.async().bytes(3), data);
    const wire::Record empty = client.ask(wire::NETCM_CLIENT_TUNNEL_REQ);
    EXPECT_NE(empty.CallId, first.CallId);
    EXPECT_EQ(client.async().record().Word2, 0u);
}

}  // namespace
}  // namespace quorvel::test
