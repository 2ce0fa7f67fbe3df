// How the network is, and what has gone over it, as NetworkManager's devices have it.
#include <gtest/gtest.h>

#include "networkmanager/ManagedTest.h"
#include "networkmanager/StandInModem.h"
#include "support/Eventually.h"

namespace quorvel::test {
namespace {

// As applications are told.
enum Status : uint32_t { kAbsent, kDown, kNoAddress, kReady };

struct Statuses {
    uint32_t packet_data;
    uint32_t wifi;
    bool operator==(const Statuses&) const = default;
};

class ManagedStatus : public ManagedTest {
  public:
    static Statuses ask(RawClient& client) {
        const wire::Record answer = client.ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ);
        return {answer.Word8, answer.Word7};
    }
    static void expect_becomes(RawClient& client, const Statuses& expected) {
        EXPECT_TRUE(eventually([&] { return ask(client) == expected; }))
            << ask(client).packet_data << " and " << ask(client).wifi << ", not " << expected.packet_data
            << " and " << expected.wifi << "\n"
            << RealNetworkManager::nmcli("device");
    }
    static uint32_t interfaces(RawClient& client) {
        return client.ask(wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ).Word2;
    }
    static wire::StatisticsBlock statistics(RawClient& client) {
        client.ask(wire::NETCM_CLIENT_GET_STAT_INFO_REQ);
        return client.sync().block<wire::StatisticsBlock>();
    }
};

TEST_F(ManagedStatus, is_that_of_the_device_that_the_connection_is_for) {
    serve();
    RawClient client;
    expect_becomes(client, {kNoAddress, kAbsent});  // it could be brought up
    EXPECT_EQ(interfaces(client), static_cast<uint32_t>(NETCM_IFACE_PDP));
    const uint32_t call = client.open(1);
    expect_becomes(client, {kReady, kAbsent});
    manager->behind("ip link set gw0 down");
    expect_becomes(client, {kDown, kAbsent});
    EXPECT_EQ(interfaces(client), 0u);
    manager->behind("ip link set gw0 up");
    expect_becomes(client, {kReady, kAbsent});
    client.stop(call, 1);
    expect_becomes(client, {kNoAddress, kAbsent});
}

TEST_F(ManagedStatus, is_none_as_long_as_network_manager_is_away) {
    serve();
    RawClient client;
    expect_becomes(client, {kNoAddress, kAbsent});
    manager->kill();
    expect_becomes(client, {kAbsent, kAbsent});
    manager->start();
    expect_becomes(client, {kNoAddress, kAbsent});
}

TEST_F(ManagedStatus, is_told_when_it_changes) {
    serve();
    RawClient client;
    expect_becomes(client, {kNoAddress, kAbsent});
    RealNetworkManager::nmcli("connection up wired");
    wire::Record told{};
    do
        told = client.async().record();
    while (told.Code == wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND && told.Word2 != kReady);
    EXPECT_EQ(told.Code, wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND);
    EXPECT_EQ(told.Word2, kReady);
}

TEST_F(ManagedStatus, is_none_without_the_connection_and_down_without_a_device_for_it) {
    // The other kind shows when NetworkManager has been asked.
    const std::string other =
        "[[network]]\nkind = \"wlan\"\nbearer = \"networkmanager\"\nconnection = \"wired\"\n";
    serve(config_of("wierd") + other);
    expect_becomes(*std::make_unique<RawClient>(), {kAbsent, kNoAddress});
    server.reset();
    serve(config_of("wired", "interface = \"eth7\"\n") + other);
    expect_becomes(*std::make_unique<RawClient>(), {kDown, kNoAddress});
}

TEST_F(ManagedStatus, of_packet_data_is_the_modem_s) {
    auto modem = std::make_unique<StandInModem>("eth9");
    serve("[[network]]\nbearer = \"networkmanager\"\n[[profile]]\nname = \"Internet\"\napn = \"internet\"\n");
    RawClient client;
    expect_becomes(client, {kNoAddress, kAbsent});
    client.open(1);
    expect_becomes(client, {kReady, kAbsent});
    modem->register_as(StandInModem::kSearching);
    expect_becomes(client, {kDown, kAbsent});
    modem->register_as(StandInModem::kHome);
    expect_becomes(client, {kReady, kAbsent});
    modem->remove();
    expect_becomes(client, {kAbsent, kAbsent});
}

TEST_F(ManagedStatus, counts_what_goes_over_the_device) {
    serve();
    RawClient client;
    const uint32_t call = client.open(1);
    const wire::StatisticsBlock before = statistics(client);
    const auto send_to = [](const std::string& address) {
        return "bash -c 'for i in 1 2 3; do head -c 500 /dev/zero >/dev/udp/" + address + "/9; done'";
    };
    manager->behind(send_to("10.70.0.50"));
    run({"sh", "-c", send_to("10.70.0.1")});
    const wire::StatisticsBlock after = statistics(client);
    for (const int counter : {0, 1})
        EXPECT_GE(after.Counter[counter] - before.Counter[counter], 1500u);
    for (const int counter : {2, 3})
        EXPECT_GE(after.Counter[counter] - before.Counter[counter], 3u);
    client.stop(call, 1);
    EXPECT_GE(statistics(client).Counter[0], after.Counter[0]);
}

TEST_F(ManagedStatus, of_packet_data_s_state_ends_with_the_connection) {
    serve();
    RawClient client;
    client.open(1);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_SET_PACKET_DATA_STATE_REQ, {.Arg3 = 3, .Arg4 = 1}).Status,
              NETCM_SUCCESS);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_PACKET_DATA_STATE_REQ, {.Arg4 = 1}).Word2, 3u);
    RealNetworkManager::nmcli("connection down wired");
    EXPECT_EQ(client.event().Code, wire::NETCM_CLIENT_STOP_IND);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_PACKET_DATA_STATE_REQ, {.Arg4 = 1}).Status,
              NETCM_ERR_NOT_ACTIVE);
}

}  // namespace
}  // namespace quorvel::test
