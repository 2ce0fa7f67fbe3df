// The address of a connection changes: one of its users is told.
#include "CallTest.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kIpChange = wire::NETCM_CLIENT_IP_CHANGE_IND;

wire::ConnectionBlock new_address() {
    wire::ConnectionBlock block = connection_block();
    block.IpAddr = ipv4(10, 9, 9, 9);
    std::strcpy(block.IfaceName, "pdp1");
    return block;
}

class IpChange : public CallTest {
  protected:
    // Call 0, up, with users 0 and 1 on profile 7.
    void up() {
        bring_up(registered(0), 7);
        join(registered(1), 7);
        events::clear();
        trace::clear();
    }
};

TEST_F(IpChange, only_the_first_thread_with_the_profile_is_told) {
    up();
    const auto watching = watch_mutex();
    ASSERT_TRUE(push_and_settle(indication(kIpChange, 0, 7), new_address()));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_IP_CHANGE_IND, 7, 0}}));
    const NetCMConnInfo info = *events::all().at(0).details;
    EXPECT_EQ(info.ProfileId, 7);
    EXPECT_STREQ(info.IfaceName, "pdp1");
    EXPECT_EQ(info.DnsCount, 2);
    EXPECT_EQ(bytes_of(info.IpAddr), bytes_of(ipv4(10, 9, 9, 9)));
    EXPECT_EQ(bytes_of(info.OptAddr2), bytes_of(ipv4(10, 1, 2, 2)));
    EXPECT_STREQ(call(0).ConnInfo.IfaceName, "pdp1");
    EXPECT_EQ(bytes_of(call(0).ConnInfo.IpAddr), bytes_of(ipv4(10, 9, 9, 9)));
    expect_all_on_receiver();
}

TEST_F(IpChange, its_steps_are_traced_in_order) {
    up();
    ASSERT_TRUE(push_and_settle(indication(kIpChange, 0, 7), new_address()));
    const auto callback = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(user(0).callback()));
    EXPECT_TRUE(traced_in_order({{0, "Received IP change indication from server \n", kInternal},
                                 {0, "IP change indication. Call ID = 0 Profile ID = 7\n", kCore},
                                 {0, trace::text("thread index[0] event_cb [0x%x]\n", callback), kCore}}));
}

TEST_F(IpChange, the_first_that_holds_the_profile_not_the_first_of_the_call) {
    up();
    set_entry(0, 0, 0, {8});
    ASSERT_TRUE(push_and_settle(indication(kIpChange, 0, 7), new_address()));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_IP_CHANGE_IND, 7, 0}}));
}

TEST_F(IpChange, a_profile_that_nobody_holds_is_stored_and_told_to_nobody) {
    up();
    ASSERT_TRUE(push_and_settle(indication(kIpChange, 0, 99), new_address()));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_STREQ(call(0).ConnInfo.IfaceName, "pdp1");
}

TEST_F(IpChange, the_profile_minus_one_is_nobodys) {
    up();
    ASSERT_TRUE(push_and_settle(indication(kIpChange, 0, -1), new_address()));
    EXPECT_EQ(events::count(), 0u);
}

TEST_F(IpChange, an_empty_name_keeps_the_stored_one_and_delivers_it) {
    up();
    wire::ConnectionBlock block = new_address();
    block.IfaceName[0] = '\0';
    ASSERT_TRUE(push_and_settle(indication(kIpChange, 0, 7), block));
    EXPECT_STREQ(call(0).ConnInfo.IfaceName, "pdp0");
    EXPECT_STREQ(events::all().at(0).details->IfaceName, "pdp0");
    EXPECT_EQ(bytes_of(call(0).ConnInfo.IpAddr), bytes_of(ipv4(10, 9, 9, 9)));
}

TEST_F(IpChange, a_name_without_an_end_is_cut_at_31_characters) {
    up();
    wire::ConnectionBlock block = new_address();
    std::fill(std::begin(block.IfaceName), std::end(block.IfaceName), 'n');
    ASSERT_TRUE(push_and_settle(indication(kIpChange, 0, 7), block));
    EXPECT_EQ(call(0).ConnInfo.IfaceName, std::string(31, 'n'));
    EXPECT_EQ(events::all().at(0).details->IfaceName, std::string(31, 'n'));
}

TEST_F(IpChange, a_count_of_more_servers_than_there_are_is_two) {
    up();
    wire::ConnectionBlock block = new_address();
    block.DnsCount = 0x7fffffff;
    ASSERT_TRUE(push_and_settle(indication(kIpChange, 0, 7), block));
    EXPECT_EQ(events::all().at(0).details->DnsCount, 2);
    EXPECT_EQ(call(0).ConnInfo.DnsCount, 2);
}

TEST_F(IpChange, a_failure_does_nothing_and_has_no_block) {
    up();
    ASSERT_TRUE(push_and_settle(indication(kIpChange, 0, 7, 22)));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_STREQ(call(0).ConnInfo.IfaceName, "pdp0");
    const wire::Record record = indication(kIpChange, 0, 7, 22);
    EXPECT_EQ(with_table([&](auto&) { return NetCMClientProcesIpChangeInd(&record.Code); }), NETCM_SUCCESS);
}

TEST_F(IpChange, an_unknown_call_is_dropped_together_with_its_block) {
    up();
    ASSERT_TRUE(push_and_settle(indication(kIpChange, 3, 7), new_address()));
    EXPECT_TRUE(traced_in_order({{0, "IP change indication. Call ID = 3 Profile ID = 7\n", kCore},
                                 {2, "Callid [3] not active \n", kCore}}));
    EXPECT_EQ(events::count(), 0u);
    ASSERT_TRUE(push_and_settle(indication(kIpChange, 0, 7), new_address()));
    EXPECT_EQ(events::count(), 1u);
}

TEST_F(IpChange, an_unknown_call_is_an_invalid_parameter) {
    up();
    const wire::Record record = indication(kIpChange, 3, 7, 22);
    EXPECT_EQ(with_table([&](auto&) { return NetCMClientProcesIpChangeInd(&record.Code); }),
              NETCM_ERR_INVALID_PARAM);
}

TEST_F(IpChange, a_block_that_does_not_come_leaves_the_stored_data) {
    up();
    calls::answer_next_poll(0);
    ASSERT_TRUE(push_and_settle(indication(kIpChange, 0, 7)));
    EXPECT_TRUE(traced_in_order({{3, "Error reading PDP Activation response\n", kCore}}));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_STREQ(call(0).ConnInfo.IfaceName, "pdp0");
    EXPECT_EQ(bytes_of(call(0).ConnInfo.IpAddr), bytes_of(ipv4(10, 1, 2, 3)));
}

TEST_F(IpChange, a_thread_without_a_callback_is_not_passed_over) {
    up();
    with_table([](NetCMClientAppInfo& table) { return table.ThreadInfo[0].EventCbk = nullptr; });
    ASSERT_TRUE(push_and_settle(indication(kIpChange, 0, 7), new_address()));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_TRUE(traced_in_order({{0, "thread index[0] event_cb [0x0]\n", kCore}}));
}

}  // namespace
}  // namespace quorvel::test
