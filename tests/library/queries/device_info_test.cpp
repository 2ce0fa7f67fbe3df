// The details of a connection, asked for later and answered from the table.
#include "library/calls/CallTest.h"

namespace quorvel::test {
namespace {

constexpr uint8_t kUntouched = 0xee;

class DeviceInfo : public CallTest {
  protected:
    NetCMConnInfo info;

    DeviceInfo() { memset(&info, kUntouched, sizeof info); }

    uint32_t ask(User& who, int32_t profile) {
        return who.run([=, this] { return NetCMDeviceGetInfo(profile, &info); });
    }
    bool is_untouched() const {
        const Bytes bytes = bytes_of(info);
        return std::all_of(bytes.begin(), bytes.end(),
                           [](std::byte byte) { return byte == std::byte{kUntouched}; });
    }
    // User 0 with profile 7 on call 0, brought up with this block.
    User& up(const wire::ConnectionBlock& block) {
        User& who = registered(0);
        who.open(7);
        EXPECT_TRUE(push_and_settle(start_response(0, 7), block));
        trace::clear();
        return who;
    }
    static void expect_address(const NetCMAddr& address, const NetCMAddr& expected) {
        EXPECT_EQ(address.Type, 0u);
        EXPECT_EQ(memcmp(address.Addr, expected.Addr, 4), 0);
        for (size_t i = 4; i < sizeof address.Addr; ++i)
            EXPECT_EQ(address.Addr[i], kUntouched) << "only four bytes are written";
    }
};

TEST_F(DeviceInfo, an_active_profile_has_its_details) {
    User& who = up(connection_block());
    EXPECT_EQ(ask(who, 7), NETCM_SUCCESS);
    EXPECT_EQ(info.ProfileId, 7);
    EXPECT_STREQ(info.IfaceName, "pdp0");
    EXPECT_EQ(info.DnsCount, 2);
    expect_address(info.DnsAddr[0], ipv4(192, 0, 2, 53));
    expect_address(info.DnsAddr[1], ipv4(192, 0, 2, 54));
    expect_address(info.IpAddr, ipv4(10, 1, 2, 3));
    EXPECT_TRUE(traced_in_order({{0, "Getting device request for profile id [7] \n"},
                                 {0, trace::text("Mutex locked by thread [%d] \n", who.tid())},
                                 {0, "Profile [7] found in the call list\n"},
                                 {0, "Profile [7] is Active\n"},
                                 {0, trace::text("Mutex unlocked by thread [%d] \n", who.tid())}}));
}

TEST_F(DeviceInfo, no_server_is_asked) {
    User& who = up(connection_block());
    const size_t before = server.requests().size();
    EXPECT_EQ(ask(who, 7), NETCM_SUCCESS);
    EXPECT_EQ(server.requests().size(), before);
}

TEST_F(DeviceInfo, the_first_optional_place_carries_the_second_address) {
    User& who = up(connection_block());
    EXPECT_EQ(ask(who, 7), NETCM_SUCCESS);
    EXPECT_EQ(info.HasOptAddr1, 1);
    expect_address(info.OptAddr1, ipv4(10, 1, 2, 2));
    EXPECT_EQ(info.HasOptAddr2, 1);
    expect_address(info.OptAddr2, ipv4(10, 1, 2, 2));
}

TEST_F(DeviceInfo, an_optional_place_that_is_not_there_is_not_written) {
    wire::ConnectionBlock block = connection_block();
    block.HasOptAddr1 = 0;
    block.HasOptAddr2 = 0;
    User& who = up(block);
    EXPECT_EQ(ask(who, 7), NETCM_SUCCESS);
    EXPECT_EQ(info.HasOptAddr1, 0xeeee);
    EXPECT_EQ(info.HasOptAddr2, 0xeeee);
    EXPECT_EQ(info.OptAddr1.Type, 0xeeeeeeeeu);
    EXPECT_EQ(info.OptAddr2.Type, 0xeeeeeeeeu);
}

TEST_F(DeviceInfo, a_first_address_alone_is_handed_out_as_the_second_that_is_not_there) {
    wire::ConnectionBlock block = connection_block();
    block.HasOptAddr2 = 0;
    User& who = up(block);
    EXPECT_EQ(ask(who, 7), NETCM_SUCCESS);
    EXPECT_EQ(info.HasOptAddr1, 1);
    expect_address(info.OptAddr1, ipv4(0, 0, 0, 0));
    EXPECT_EQ(info.HasOptAddr2, 0xeeee);
}

TEST_F(DeviceInfo, the_dns_count_is_2_whatever_is_stored) {
    wire::ConnectionBlock block = connection_block();
    for (const int32_t count : {0, 1}) {
        block.DnsCount = count;
        User& who = count == 0 ? up(block) : user(0);
        if (count == 1) {
            ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_IP_CHANGE_IND, 0, 7), block));
        }
        EXPECT_EQ(ask(who, 7), NETCM_SUCCESS);
        EXPECT_EQ(call(0).ConnInfo.DnsCount, count);
        EXPECT_EQ(info.DnsCount, 2);
    }
    expect_address(info.DnsAddr[0], ipv4(192, 0, 2, 53));
    expect_address(info.DnsAddr[1], ipv4(0, 0, 0, 0));
}

TEST_F(DeviceInfo, every_address_is_handed_out_as_ipv4) {
    wire::ConnectionBlock block = connection_block();
    block.IpAddr.Type = 1;
    User& who = up(block);
    EXPECT_EQ(call(0).ConnInfo.IpAddr.Type, 1u);
    EXPECT_EQ(ask(who, 7), NETCM_SUCCESS);
    EXPECT_EQ(info.IpAddr.Type, 0u);
}

TEST_F(DeviceInfo, the_whole_name_field_is_copied) {
    User& who = up(connection_block());
    EXPECT_EQ(ask(who, 7), NETCM_SUCCESS);
    EXPECT_EQ(memcmp(info.IfaceName, call(0).ConnInfo.IfaceName, sizeof info.IfaceName), 0);
}

TEST_F(DeviceInfo, any_thread_may_ask_for_any_threads_profile) {
    up(connection_block());
    EXPECT_EQ(ask(user(1), 7), NETCM_SUCCESS);
    set_entry(0, 5, 0, {-1, -1, 31});
    EXPECT_EQ(ask(user(1), 31), NETCM_SUCCESS);
    EXPECT_EQ(info.ProfileId, 31);
}

TEST_F(DeviceInfo, the_second_calls_details_come_from_the_second_call) {
    User& who = up(connection_block());
    who.open(8);
    wire::ConnectionBlock block = connection_block();
    std::strcpy(block.IfaceName, "pdp1");
    ASSERT_TRUE(push_and_settle(start_response(1, 8), block));
    EXPECT_EQ(ask(who, 8), NETCM_SUCCESS);
    EXPECT_STREQ(info.IfaceName, "pdp1");
}

TEST_F(DeviceInfo, a_call_that_is_still_rising_is_not_active) {
    User& who = registered(0);
    who.open(7);
    EXPECT_EQ(ask(who, 7), NETCM_ERR_NOT_ACTIVE);
    EXPECT_TRUE(is_untouched());
}

TEST_F(DeviceInfo, a_profile_without_a_call_is_not_active) {
    User& who = up(connection_block());
    EXPECT_EQ(ask(who, 8), NETCM_ERR_NOT_ACTIVE);
    EXPECT_TRUE(is_untouched());
    EXPECT_TRUE(traced_in_order({{0, "Profile [8] not found in the call list\n"},
                                 {0, trace::text("Mutex unlocked by thread [%d] \n", who.tid())}}));
}

TEST_F(DeviceInfo, a_call_without_an_id_is_not_active) {
    User& who = up(connection_block());
    with_table([](NetCMClientAppInfo& table) { return table.CallInfo[0].CallId = -1; });
    EXPECT_EQ(ask(who, 7), NETCM_ERR_NOT_ACTIVE);
}

TEST_F(DeviceInfo, a_null_record_is_refused_before_any_lock) {
    EXPECT_EQ(NetCMDeviceGetInfo(7, nullptr), NETCM_ERR_INVALID_PARAM);
    EXPECT_TRUE(traced_in_order({{0, "Getting device request for profile id [7] \n"},
                                 {5, "Invalid parameter... devinfo = [0x0] \n"}}));
    EXPECT_EQ(calls::count(Call::MutexLock), 0u);
}

TEST_F(DeviceInfo, an_id_below_1_is_refused_before_any_lock) {
    for (const int32_t id : {0, -1}) {
        EXPECT_EQ(NetCMDeviceGetInfo(id, &info), NETCM_ERR_INVALID_PROFILE);
        EXPECT_TRUE(traced_in_order({{5, trace::text("Invalid parameter... Profile ID [%d]\n", id)}}));
    }
    EXPECT_EQ(calls::count(Call::MutexLock), 0u);
    EXPECT_EQ(NetCMDeviceGetInfo(0, nullptr), NETCM_ERR_INVALID_PARAM) << "the record is looked at first";
}

TEST_F(DeviceInfo, an_unregistered_process_is_refused) {
    EXPECT_EQ(NetCMDeviceGetInfo(7, &info), NETCM_ERR_NOT_REGISTERED);
    EXPECT_TRUE(traced_in_order({{2, "Cleint is not yet registered with CM\n"}}));
    EXPECT_TRUE(is_untouched());
}

}  // namespace
}  // namespace quorvel::test
