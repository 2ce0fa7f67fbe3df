// Packet data by a real NetworkManager, with a stand-in for the modem.
#include <gtest/gtest.h>

#include <csignal>

#include "networkmanager/ManagedTest.h"
#include "networkmanager/StandInModem.h"
#include "support/Eventually.h"

namespace quorvel::test {
namespace {

using cm::Reason;

constexpr const char* kConfig = R"(
[[network]]
bearer = "networkmanager"
[[profile]]
name = "Internet"
apn = "internet.example"
user-name = "me"
password = "hush"
auth-type = "chap"
)";

class Modem : public ManagedTest {
  public:
    void SetUp() override {
        ManagedTest::SetUp();
        if (IsSkipped())
            return;
        modem = std::make_unique<StandInModem>("eth9");
        ASSERT_TRUE(eventually([] {
            return RealNetworkManager::nmcli("-t -f DEVICE,TYPE,STATE device")
                       .find("cdc-wdm7:gsm:disconnected") != std::string::npos;
        })) << RealNetworkManager::nmcli("device");
        server = std::make_unique<CmServer>(kConfig);
    }
    static bool has_made() { return is_there("Quorvel profile 1"); }

    std::unique_ptr<StandInModem> modem;
};

TEST_F(Modem, is_connected_with_the_profile_s_account_and_disconnected_with_its_call) {
    RawClient client;
    wire::ConnectionBlock block{};
    const uint32_t call = client.open(1, &block);
    EXPECT_STREQ(block.IfaceName, "eth9");
    EXPECT_EQ(dotted(block.IpAddr), "10.70.0.42");
    EXPECT_EQ(dotted(block.DnsAddr[0]), "10.70.0.1");
    auto asked = modem->asked_for();
    EXPECT_EQ(asked["apn"], "internet.example");
    EXPECT_EQ(asked["user"], "me");
    EXPECT_EQ(asked["password"], "hush");
    EXPECT_EQ(asked["allowed-auth"], "5");  // none, or CHAP
    EXPECT_TRUE(has_made());
    client.stop(call, 1);
    EXPECT_TRUE(eventually([] { return !has_made(); }));
    EXPECT_TRUE(eventually([this] { return modem->disconnections() > 0; }));
}

TEST_F(Modem, is_disconnected_by_a_server_that_ends_in_order) {
    RawClient client;
    client.open(1);
    EXPECT_EQ(server->stop().status, 0);
    EXPECT_TRUE(eventually([] { return !has_made(); }));
    EXPECT_TRUE(eventually([this] { return modem->disconnections() > 0; }));
}

TEST_F(Modem, that_searches_suspends_the_call_until_it_has_a_network_again) {
    RawClient client;
    client.open(1);
    modem->register_as(StandInModem::kSearching);
    EXPECT_EQ(client.event().Code, wire::NETCM_CLIENT_SUSPEND_IND);
    modem->register_as(StandInModem::kRoaming);
    EXPECT_EQ(client.event().Code, wire::NETCM_CLIENT_RESUME_IND);
}

TEST_F(Modem, that_is_pulled_out_ends_the_call) {
    RawClient client;
    client.open(1);
    modem->remove();
    // NetworkManager takes the data port down before it says why.
    wire::Record event = client.event();
    if (event.Code == wire::NETCM_CLIENT_SUSPEND_IND)
        event = client.event();
    expect_reason(event, wire::NETCM_CLIENT_STOP_IND, Reason::kNoInterface);
    EXPECT_TRUE(eventually([] { return !has_made(); }));
}

TEST_F(Modem, s_connection_is_deleted_by_the_next_server_when_this_one_is_killed) {
    RawClient client;
    client.open(1);
    server->program().send_signal(SIGKILL);
    server->program().wait();
    EXPECT_TRUE(has_made());
    server = std::make_unique<CmServer>(kConfig);
    EXPECT_TRUE(eventually([] { return !has_made(); }));
    EXPECT_TRUE(eventually([this] { return modem->disconnections() > 0; }));
    RawClient again;
    again.open(1);
}

struct Refusal {
    const char* name;
    const char* error;
    Reason reason;
    const char* words;
};

class ModemThatRefuses : public Modem, public ::testing::WithParamInterface<Refusal> {};

TEST_P(ModemThatRefuses, is_told_with_its_reason) {
    modem->refuse(GetParam().error);
    RawClient client;
    expect_refused(client, GetParam().reason);
    server->program().wait_for_err(std::string("does not come up: ") + GetParam().words);
    EXPECT_TRUE(eventually([] { return !has_made(); }));
}

INSTANTIATE_TEST_SUITE_P(
    Every, ModemThatRefuses,
    ::testing::Values(
        Refusal{"no_sim", "MobileEquipment.SimNotInserted", Reason::kRefused, "there is no SIM"},
        Refusal{"wrong_pin", "MobileEquipment.IncorrectPassword", Reason::kRefused, "the SIM's PIN is wrong"},
        Refusal{"wrong_sim", "MobileEquipment.SimWrong", Reason::kRefused, "the SIM is the wrong one"},
        Refusal{"network", "MobileEquipment.NetworkNotAllowed", Reason::kRefused,
                "the network refuses the modem"},
        Refusal{"no_answer", "MobileEquipment.NetworkTimeout", Reason::kTimeLimit,
                "the network does not answer the modem"},
        Refusal{"no_carrier", "Connection.NoCarrier", Reason::kInterfaceDown, "the modem has no carrier"}),
    [](const auto& refusal) { return std::string(refusal.param.name); });

}  // namespace
}  // namespace quorvel::test
