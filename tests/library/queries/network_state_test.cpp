// State of the network interfaces.
#include "library/calls/CallTest.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kStatus = wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ;
constexpr uint32_t kInterfaces = wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ;

class NetworkState : public CallTest {
  protected:
    void serve_status(uint32_t wifi, uint32_t pdp) {
        wire::Record record = answer_record(kStatus);
        record.Word7 = wifi;
        record.Word8 = pdp;
        server.on(kStatus, Answer().record(record));
    }
    void serve_interfaces(uint32_t mask) {
        wire::Record record = answer_record(kInterfaces);
        record.Word2 = mask;
        server.on(kInterfaces, Answer().record(record));
    }
    uint32_t status_of(User& who, uint32_t net_iface, uint32_t* status) {
        return who.run([=] { return NetCMGetNetworkStatus(net_iface, status); });
    }
};

TEST_F(NetworkState, packet_data_and_wifi_each_have_their_word) {
    User& who = registered(0);
    serve_status(70, 80);
    uint32_t status = 0;
    EXPECT_EQ(status_of(who, NETCM_IFACE_PDP, &status), NETCM_SUCCESS);
    EXPECT_EQ(status, 80u);
    EXPECT_EQ(status_of(who, NETCM_IFACE_WIFI, &status), NETCM_SUCCESS);
    EXPECT_EQ(status, 70u);
    EXPECT_TRUE(
        traced_in_order({{0, "Success.. PDP status = [80]\n"}, {0, "Success.. Wi-Fi status = [70]\n"}}));
}

TEST_F(NetworkState, other_interfaces_are_refused) {
    User& who = registered(0);
    uint32_t status = 5;
    for (const uint32_t net_iface : {0u, 3u, 0xffffffffu}) {
        EXPECT_EQ(status_of(who, net_iface, &status), NETCM_ERR_INVALID_PARAM) << net_iface;
        EXPECT_TRUE(
            traced_in_order({{5, trace::text("Error.. Invalid parameter NetIface[%d] Status [%p]\n",
                                             static_cast<int>(net_iface), static_cast<void*>(&status))}}));
    }
    EXPECT_EQ(status, 5u);
    EXPECT_EQ(server.count(kStatus), 0u);
}

TEST_F(NetworkState, a_null_status_is_refused) {
    User& who = registered(0);
    EXPECT_EQ(status_of(who, 1, nullptr), NETCM_ERR_INVALID_PARAM);
    EXPECT_TRUE(traced_in_order({{5, trace::text("Error.. Invalid parameter NetIface[1] Status [%p]\n",
                                                 static_cast<void*>(nullptr))}}));
}

TEST_F(NetworkState, before_the_registration_bad_arguments_are_not_looked_at) {
    EXPECT_EQ(status_of(user(0), 3, nullptr), NETCM_ERR_NOT_REGISTERED);
    EXPECT_TRUE(
        traced_in_order({{0, "Request to get network status\n"}, {2, "Cleint is not registered with CM\n"}}));
}

TEST_F(NetworkState, the_status_is_0_after_every_failed_exchange) {
    User& who = registered(0);
    for (const Answer& answer : {wrong_code(118), refusal(kStatus, 33), hang_up()}) {
        server.on(kStatus, answer);
        uint32_t status = 5;
        EXPECT_NE(status_of(who, 1, &status), NETCM_SUCCESS);
        EXPECT_EQ(status, 0u);
    }
}

TEST_F(NetworkState, a_thread_that_is_not_registered_may_ask) {
    registered(0);
    serve_status(1, 2);
    uint32_t status = 0;
    EXPECT_EQ(status_of(user(1), 1, &status), NETCM_SUCCESS);
    EXPECT_EQ(status, 2u);
}

TEST_F(NetworkState, the_interface_list_is_the_servers_mask) {
    User& who = registered(0);
    serve_interfaces(3);
    int32_t list = 0;
    EXPECT_EQ(who.run([&] { return NetCMGetNetIfaceList(&list); }), NETCM_SUCCESS);
    EXPECT_EQ(list, 3);
    EXPECT_TRUE(traced_in_order({{0, "Successfully read network interface list [3]\n"}}));
}

TEST_F(NetworkState, a_null_list_is_refused_even_before_the_registration) {
    const auto ask = [] { return NetCMGetNetIfaceList(nullptr); };
    EXPECT_EQ(user(0).run(ask), NETCM_ERR_INVALID_PARAM);
    EXPECT_EQ(trace::texts(), std::vector<std::string>{"Invalid input parameter\n"});
    EXPECT_TRUE(traced_in_order({{5, "Invalid input parameter\n"}}));
}

TEST_F(NetworkState, a_failed_exchange_leaves_the_list_alone) {
    User& who = registered(0);
    server.on(kInterfaces, refusal(kInterfaces, 33));
    int32_t list = 9;
    EXPECT_EQ(who.run([&] { return NetCMGetNetIfaceList(&list); }), 33u);
    EXPECT_EQ(list, 9);
}

TEST_F(NetworkState, an_interface_is_supported_when_its_bit_is_set) {
    User& who = registered(0);
    const auto supported = [&](uint32_t net_iface) {
        return who.run([=] { return NetCMNetIfaceSupport(net_iface); });
    };
    serve_interfaces(1);
    EXPECT_EQ(supported(1), 1u);
    EXPECT_EQ(supported(2), 0u);
    serve_interfaces(3);
    EXPECT_EQ(supported(2), 1u);
    EXPECT_EQ(supported(3), 0u) << "no interface, although it shares bits";
    EXPECT_EQ(supported(0), 0u);
}

TEST_F(NetworkState, a_list_that_cannot_be_read_supports_nothing) {
    User& who = registered(0);
    wire::Record record = answer_record(kInterfaces, 33);
    record.Word2 = 3;
    server.on(kInterfaces, Answer().record(record));
    EXPECT_EQ(who.run([] { return NetCMNetIfaceSupport(1); }), 0u);
    server.on(kInterfaces, hang_up());
    EXPECT_EQ(who.run([] { return NetCMNetIfaceSupport(1); }), 0u);
}

TEST_F(NetworkState, a_mask_at_hand_is_looked_at_without_an_exchange) {
    registered(0);
    EXPECT_EQ(NetCMNetIfaceSupportEx(1, 1), 1u);
    EXPECT_EQ(NetCMNetIfaceSupportEx(1, 2), 0u);
    EXPECT_EQ(NetCMNetIfaceSupportEx(2, 2), 1u);
    EXPECT_EQ(NetCMNetIfaceSupportEx(2, 0xfffffffd), 0u);
    EXPECT_EQ(NetCMNetIfaceSupportEx(3, 3), 0u);
    EXPECT_EQ(NetCMNetIfaceSupportEx(0, 3), 0u);
    EXPECT_EQ(server.count(kInterfaces), 0u);
}

TEST_F(NetworkState, nothing_is_supported_before_the_registration) {
    EXPECT_EQ(NetCMNetIfaceSupportEx(1, 3), 0u);
    EXPECT_EQ(NetCMNetIfaceSupport(1), 0u);
    EXPECT_EQ(trace::count("Cleint is not yet registered with CM\n"), 2u);
    EXPECT_TRUE(traced_in_order({{2, "Cleint is not yet registered with CM\n"},
                                 {2, "Cleint is not registered with CM\n"},
                                 {2, "Cleint is not yet registered with CM\n"}}));
    EXPECT_EQ(calls::count(Call::MutexLock), 0u);
}

}  // namespace
}  // namespace quorvel::test
