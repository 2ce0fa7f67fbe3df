// Registering, and what becomes of a client that does not keep to the protocol.
#include <signal.h>

#include "server/RawClient.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

// So many of the request in a row.
std::string as_sent(const wire::RequestHeader& header, int times = 1) {
    std::string bytes;
    for (int i = 0; i < times; ++i)
        bytes.append(reinterpret_cast<const char*>(&header), sizeof(header));
    return bytes;
}

TEST(ServerLink, every_client_gets_an_id_of_its_own) {
    CmServer server;
    RawClient first(77);
    RawClient second;
    EXPECT_NE(first.id(), second.id());
    EXPECT_NE(server.stop().err.find("application 77"), std::string::npos);
}

TEST(ServerLink, a_client_goes_by_its_socket_not_by_the_id_that_it_sends) {
    // After a restart of the server a client may still send the id that the old one gave.
    CmServer server;
    RawClient client;
    client.sync().send({wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ, 0, client.id() + 1000, 0, 0, 0});
    const wire::Record answer = client.sync().record();
    EXPECT_EQ(answer.Code, wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP);
    EXPECT_EQ(answer.Word2, 1u);
}

TEST(ServerLink, requests_that_arrive_in_one_piece_are_all_answered_in_order) {
    CmServer server;
    RawClient client;
    std::string bytes;
    for (const uint32_t command :
         {wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ, wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ,
          wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ}) {
        const wire::RequestHeader header{command, 0, client.id(), 0, 0, 0};
        bytes += as_sent(header);
    }
    client.sync().send(bytes);
    EXPECT_EQ(client.sync().record().Code, wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP);
    EXPECT_EQ(client.sync().record().Code, wire::NETCM_CLIENT_GET_NETIFACE_LIST_RSP);
    EXPECT_EQ(client.sync().record().Code, wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP);
}

TEST(ServerLink, a_request_may_arrive_byte_by_byte) {
    CmServer server;
    RawClient client;
    const wire::RequestHeader header{wire::NETCM_CLIENT_TUNNEL_REQ, 0, client.id(), 0, 3, 0};
    for (const char byte : as_sent(header) + "abc")
        client.sync().send(std::string_view(&byte, 1));
    EXPECT_EQ(client.sync().record().Code, wire::NETCM_CLIENT_TUNNEL_RSP);
    EXPECT_EQ(client.async().record().Word2, 3u);
    EXPECT_EQ(client.async().bytes(3), "abc");
}

TEST(ServerLink, events_wait_for_the_async_socket) {
    CmServer server;
    RawSocket sync;
    sync.send({wire::NETCM_CLIENT_REGISTER_REQ, 0, 3, 0, 0, 0});
    const uint32_t id = sync.record().Word1;
    sync.send({wire::NETCM_CLIENT_START_REQ, 0, id, 0, 1, 0});
    EXPECT_EQ(sync.record().Status, NETCM_SUCCESS);
    server.program().wait_for_err("is up on lo");
    RawSocket async;
    async.send({wire::NETCM_CLIENT_ASYNC_REGISTER_REQ, 0, id, 0, 0, 0});
    EXPECT_EQ(async.record().Code, wire::NETCM_CLIENT_START_RSP);
}

// The others, here one, never notice.
class BadClient : public ::testing::Test {
  public:
    void expect_dropped(RawSocket& bad, const std::string& why) {
        EXPECT_TRUE(bad.closed());
        EXPECT_EQ(good.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2, 1u);
        server.program().wait_for_err(why);
    }

    CmServer server{"", {"--request-time", "2000"}};
    RawClient good;
};

TEST_F(BadClient, with_an_unknown_command_is_dropped) {
    RawClient bad;
    bad.tell(3);
    expect_dropped(bad.sync(), "unknown command 3");
}

TEST_F(BadClient, that_leaves_half_a_header_is_dropped) {
    RawClient bad;
    bad.sync().send(std::string(12, '\x01'));
    expect_dropped(bad.sync(), "it has left a request unfinished after 12 bytes");
}

TEST_F(BadClient, that_never_says_who_it_is_is_dropped) {
    RawSocket bad;
    expect_dropped(bad, "it has never said who it is");
}

TEST_F(BadClient, that_closes_in_the_middle_of_a_request_is_logged) {
    {
        RawClient bad;
        bad.sync().send(std::string(23, '\x01'));
    }
    server.program().wait_for_err("it has closed in the middle of a request, after 23 bytes");
}

TEST_F(BadClient, that_announces_too_much_tunnel_data_is_dropped) {
    RawClient bad;
    bad.tell(wire::NETCM_CLIENT_TUNNEL_REQ, {.Arg4 = 0xFFFFFFFFU});
    expect_dropped(bad.sync(), "tunnel data of 4294967295 bytes announced");
}

TEST_F(BadClient, that_announces_too_much_profile_data_is_dropped) {
    RawClient bad;
    const std::string payload = std::string(12, '\0') + std::string(4, '\x7f') + std::string(4, '\0');
    bad.sync().send({wire::NETPM_PROFILE_REQ, 0, bad.id(), 0, 0, 0}, payload);
    expect_dropped(bad.sync(), "profile data of");
}

TEST_F(BadClient, that_asks_before_it_has_registered_is_dropped) {
    RawSocket bad;
    bad.send({wire::NETCM_CLIENT_START_REQ, 0, good.id(), 0, 1, 0});
    expect_dropped(bad, "it sends NETCM_CLIENT_START_REQ before it has registered");
}

TEST_F(BadClient, that_offers_a_second_async_socket_is_dropped) {
    RawSocket bad;
    bad.send({wire::NETCM_CLIENT_ASYNC_REGISTER_REQ, 0, good.id(), 0, 0, 0});
    expect_dropped(bad, "which it is not");
}

TEST_F(BadClient, that_registers_twice_is_dropped) {
    RawClient bad;
    bad.tell(wire::NETCM_CLIENT_REGISTER_REQ);
    expect_dropped(bad.sync(), "it sends NETCM_CLIENT_REGISTER_REQ where that is not allowed");
}

TEST_F(BadClient, that_asks_on_its_async_socket_loses_it) {
    RawClient bad;
    bad.async().send({wire::NETCM_CLIENT_START_REQ, 0, bad.id(), 0, 1, 0});
    EXPECT_TRUE(bad.async().closed());
    server.program().wait_for_err("receives no events any more");
}

TEST_F(BadClient, that_never_reads_is_dropped_before_it_costs_memory) {
    RawClient bad;
    const std::string data(size_t{512} * 1024, 'x');
    const auto flood = [&] {
        for (int i = 0; i < 64; ++i)
            bad.sync().send(
                {wire::NETCM_CLIENT_TUNNEL_REQ, 0, bad.id(), 0, static_cast<uint32_t>(data.size()), 0}, data);
    };
    flood();
    server.program().wait_for_err("it does not read what it is sent");
    EXPECT_EQ(good.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2, 1u);
}

TEST_F(BadClient, that_asks_and_asks_without_reading_an_answer_is_dropped) {
    RawClient bad;
    const wire::RequestHeader header{
        wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_REQ, 0, bad.id(), 0, 0, 0};
    const std::string requests = as_sent(header, 8192);
    bad.sync().send(requests);
    server.program().wait_for_err("it does not read what it is sent");
    EXPECT_EQ(good.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2, 1u);
}

TEST_F(BadClient, that_tunnels_and_tunnels_without_reading_an_answer_is_dropped) {
    RawClient bad;
    const wire::RequestHeader header{wire::NETCM_CLIENT_TUNNEL_REQ, 0, bad.id(), 0, 0, 0};
    const std::string requests = as_sent(header, 256);
    // In step with who reads the log, which loses lines that a pipe has no room for.
    const auto flood = [&] {
        for (uint32_t application = 1000; true; ++application) {
            bad.sync().send(requests);
            const RawClient next(application);
            server.program().wait_for_err(", application " + std::to_string(application) + "\n");
        }
    };
    EXPECT_THROW(flood(), NoServer);
    server.program().wait_for_err("has gone: it does not read what it is sent");
    EXPECT_EQ(good.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2, 1u);
}

TEST(ServerLink, one_client_too_many_is_refused_with_a_status) {
    CmServer server("", {"--max-clients", "1"});
    RawClient client;
    RawSocket other;
    other.send({wire::NETCM_CLIENT_REGISTER_REQ, 0, 3, 0, 0, 0});
    const wire::Record answer = other.record();
    EXPECT_EQ(answer.Code, wire::NETCM_CLIENT_REGISTER_RSP);
    EXPECT_EQ(answer.Status, NETCM_ERR_MAX_LIMIT);
    EXPECT_TRUE(other.closed());
}

}  // namespace
}  // namespace quorvel::test
