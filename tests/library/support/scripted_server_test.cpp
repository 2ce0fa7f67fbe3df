// The scripted server, seen from a client that writes its bytes by hand.
#include "support/ScriptedServer.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "common/PmWire.h"

namespace quorvel::test {
namespace {

class Client {
  public:
    Client() : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, wire::kServerPath);
        connected_ = connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    ~Client() { close(fd_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool connected() const { return connected_; }
    template <class T>
    void write(const T& value) {
        EXPECT_EQ(send(fd_, &value, sizeof value, MSG_NOSIGNAL), static_cast<ssize_t>(sizeof value));
    }
    void ask(uint32_t command, uint32_t arg4 = 0) {
        wire::RequestHeader header{};
        header.Command = command;
        header.Arg4 = arg4;
        write(header);
    }
    // All bytes until the server closes or the value is complete.
    template <class T>
    T read(size_t* got = nullptr) {
        T value{};
        const ssize_t length = recv(fd_, &value, sizeof value, MSG_WAITALL);
        if (got != nullptr)
            *got = length < 0 ? 0 : static_cast<size_t>(length);
        return value;
    }

  private:
    int fd_;
    bool connected_;
};

TEST(ScriptedServer, a_client_gets_an_id_and_the_next_one_another) {
    ScriptedServer server;
    Client first;
    first.ask(wire::NETCM_CLIENT_REGISTER_REQ);
    const auto one = first.read<wire::Record>();
    EXPECT_EQ(one.Code, wire::NETCM_CLIENT_REGISTER_RSP);
    EXPECT_EQ(one.Status, 0u);
    Client second;
    second.ask(wire::NETCM_CLIENT_REGISTER_REQ);
    EXPECT_NE(second.read<wire::Record>().Word1, one.Word1);
    EXPECT_EQ(server.accepted_connections(), 2);
}

TEST(ScriptedServer, every_command_with_an_answer_is_answered_with_its_code) {
    ScriptedServer server;
    for (const wire::CommandEntry& entry : wire::kCommands) {
        const bool answered_here = entry.answer != 0 && entry.code != wire::NETCM_CLIENT_STOP_REQ &&
                                   entry.code != wire::NETCM_CLIENT_KILL_REQ;
        if (!answered_here || entry.code == wire::NETPM_PROFILE_REQ || entry.code == wire::NETPM_APPPROF_REQ)
            continue;
        Client client;
        client.ask(entry.code);
        EXPECT_EQ(client.read<wire::Record>().Code, entry.answer) << entry.name;
    }
}

TEST(ScriptedServer, payloads_are_kept_with_their_request) {
    ScriptedServer server;
    Client client;
    client.ask(wire::NETCM_CLIENT_TUNNEL_REQ, 4);
    client.write(0x11223344);
    EXPECT_EQ(client.read<wire::Record>().Code, wire::NETCM_CLIENT_TUNNEL_RSP);
    EXPECT_EQ(server.last(wire::NETCM_CLIENT_TUNNEL_REQ)->payload_as<int>(), 0x11223344);

    client.ask(wire::NETPM_PROFILE_REQ);
    client.write(wire::PmRequestHeader{.Command = 4, .ProfileId = 7, .Arg = 0, .DataLength = 8, .Arg2 = 0});
    client.write(uint64_t{1});
    EXPECT_EQ(client.read<wire::Record>().Word1, 104u);
    EXPECT_EQ(server.last(wire::NETPM_PROFILE_REQ)->payload.size(), 28u);
}

TEST(ScriptedServer, what_a_test_orders_once_is_done_once) {
    ScriptedServer server;
    Client client;
    server.once(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ,
                refusal(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ, 44, 5));
    client.ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ);
    const auto refused = client.read<wire::Record>();
    EXPECT_EQ(refused.Status, 44u);
    EXPECT_EQ(refused.Word5, 5u);
    client.ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ);
    EXPECT_EQ(client.read<wire::Record>().Status, 0u);
}

TEST(ScriptedServer, a_record_can_be_cut_short) {
    ScriptedServer server;
    server.on(wire::NETCM_CLIENT_REGISTER_REQ, cut_short(wire::NETCM_CLIENT_REGISTER_REQ, 12));
    Client client;
    client.ask(wire::NETCM_CLIENT_REGISTER_REQ);
    size_t got = 0;
    client.read<wire::Record>(&got);
    EXPECT_EQ(got, 12u);
}

TEST(ScriptedServer, a_push_arrives_on_the_async_socket_alone) {
    ScriptedServer server;
    Client sync;
    sync.ask(wire::NETCM_CLIENT_REGISTER_REQ);
    sync.read<wire::Record>();
    Client async;
    async.ask(wire::NETCM_CLIENT_ASYNC_REGISTER_REQ);
    EXPECT_TRUE(server.push(start_response(2, 9), connection_block()));
    EXPECT_EQ(async.read<wire::Record>().CallId, 2u);
    EXPECT_STREQ(async.read<wire::ConnectionBlock>().IfaceName, "pdp0");
    EXPECT_FALSE(server.requests(wire::NETCM_CLIENT_REGISTER_REQ).front().is_async);
    ASSERT_TRUE(server.wait_for(wire::NETCM_CLIENT_ASYNC_REGISTER_REQ, 1));
    EXPECT_TRUE(server.requests(wire::NETCM_CLIENT_ASYNC_REGISTER_REQ).front().is_async);
}

TEST(ScriptedServer, an_answer_can_wait_for_the_test) {
    ScriptedServer server;
    const auto gate = std::make_shared<Gate>();
    server.on(wire::NETCM_CLIENT_REGISTER_REQ,
              Answer().wait_at(gate).record(answer_record(wire::NETCM_CLIENT_REGISTER_REQ)));
    Client client;
    client.ask(wire::NETCM_CLIENT_REGISTER_REQ);
    EXPECT_TRUE(gate->is_somebody_waiting());
    gate->open();
    EXPECT_EQ(client.read<wire::Record>().Code, 1u);
}

TEST(ScriptedServer, a_server_that_is_held_can_be_stopped) {
    ScriptedServer server;
    const auto gate = std::make_shared<Gate>();
    server.on(wire::NETCM_CLIENT_REGISTER_REQ, Answer().wait_at(gate));
    Client client;
    client.ask(wire::NETCM_CLIENT_REGISTER_REQ);
    EXPECT_TRUE(gate->is_somebody_waiting());
    server.stop();
}

TEST(ScriptedServer, a_stopped_server_is_gone_and_a_started_one_is_back) {
    ScriptedServer server;
    Client before;
    server.stop();
    size_t got = 1;
    before.read<wire::Record>(&got);
    EXPECT_EQ(got, 0u);
    EXPECT_FALSE(Client().connected());
    server.start();
    EXPECT_TRUE(Client().connected());
}

TEST(ScriptedServer, dropped_connections_end_at_once) {
    ScriptedServer server;
    server.drop_next_connections(1);
    Client dropped;
    size_t got = 1;
    dropped.read<wire::Record>(&got);
    EXPECT_EQ(got, 0u);
    Client kept;
    kept.ask(wire::NETCM_CLIENT_REGISTER_REQ);
    EXPECT_EQ(kept.read<wire::Record>().Code, 1u);
}

}  // namespace
}  // namespace quorvel::test
