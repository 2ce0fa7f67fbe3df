// The details of a connection on their way from the wire through the table to the application.
#include "CallTest.h"

namespace quorvel::test {
namespace {

class ConnectionDetails : public CallTest {
  protected:
    // The record that a callback gets for this block.
    NetCMConnInfo delivered(const wire::ConnectionBlock& block) {
        registered(0).open(7);
        EXPECT_TRUE(push_and_settle(start_response(0, 7), block));
        const std::vector<Event> events = events::all();
        EXPECT_EQ(events.size(), 1u);
        return events.empty() || !events[0].details ? NetCMConnInfo{} : *events[0].details;
    }
    NetCMCallConnInfo stored() { return call(0).ConnInfo; }
};

bool is_ipv4(const NetCMAddr& address, uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    const uint8_t expected[4] = {a, b, c, d};
    return address.Type == 0 && memcmp(address.Addr, expected, 4) == 0;
}

bool is_empty(const NetCMAddr& address) {
    return bytes_of(address) == Bytes(sizeof address);
}

// Every field at the offset that the server writes it to, without the help of the library's own declaration.
TEST_F(ConnectionDetails, every_field_is_read_from_its_offset) {
    wire::ConnectionBlock block{};
    auto* bytes = reinterpret_cast<uint8_t*>(&block);
    const auto put_word = [&](size_t offset, uint32_t word) { memcpy(bytes + offset, &word, 4); };
    const auto put_flag = [&](size_t offset) {
        const uint16_t one = 1;
        memcpy(bytes + offset, &one, 2);
    };
    put_word(0, 2);
    memcpy(bytes + 4 + 4, "\x01\x02\x03\x04", 4);
    memcpy(bytes + 24 + 4, "\x05\x06\x07\x08", 4);
    memcpy(bytes + 44 + 4, "\x09\x0a\x0b\x0c", 4);
    put_flag(64);
    memcpy(bytes + 68 + 4, "\x0d\x0e\x0f\x10", 4);
    put_flag(88);
    memcpy(bytes + 92 + 4, "\x11\x12\x13\x14", 4);
    memcpy(bytes + 112, "wwan0", 6);

    const NetCMConnInfo info = delivered(block);
    EXPECT_EQ(info.ProfileId, 7);
    EXPECT_STREQ(info.IfaceName, "wwan0");
    EXPECT_EQ(info.DnsCount, 2);
    EXPECT_TRUE(is_ipv4(info.DnsAddr[0], 1, 2, 3, 4));
    EXPECT_TRUE(is_ipv4(info.DnsAddr[1], 5, 6, 7, 8));
    EXPECT_TRUE(is_ipv4(info.IpAddr, 9, 10, 11, 12));
    EXPECT_EQ(info.HasOptAddr1, 1);
    EXPECT_TRUE(is_ipv4(info.OptAddr1, 13, 14, 15, 16));
    EXPECT_EQ(info.HasOptAddr2, 1);
    EXPECT_TRUE(is_ipv4(info.OptAddr2, 17, 18, 19, 20));

    const NetCMCallConnInfo kept = stored();
    EXPECT_STREQ(kept.IfaceName, "wwan0");
    EXPECT_EQ(kept.Reserved, 0u);
    EXPECT_EQ(kept.DnsCount, 2);
    EXPECT_TRUE(is_ipv4(kept.DnsAddr[0], 1, 2, 3, 4));
    EXPECT_TRUE(is_ipv4(kept.DnsAddr[1], 5, 6, 7, 8));
    EXPECT_TRUE(is_ipv4(kept.IpAddr, 9, 10, 11, 12));
    EXPECT_TRUE(is_ipv4(kept.OptAddr1, 13, 14, 15, 16));
    EXPECT_TRUE(is_ipv4(kept.OptAddr2, 17, 18, 19, 20));
}

TEST_F(ConnectionDetails, only_the_counted_dns_servers_are_copied) {
    wire::ConnectionBlock block = connection_block();
    block.DnsCount = 1;
    const NetCMConnInfo info = delivered(block);
    EXPECT_EQ(info.DnsCount, 1);
    EXPECT_TRUE(is_ipv4(info.DnsAddr[0], 192, 0, 2, 53));
    EXPECT_TRUE(is_empty(info.DnsAddr[1]));
    EXPECT_TRUE(is_empty(stored().DnsAddr[1]));
}

TEST_F(ConnectionDetails, a_connection_may_have_no_dns_server) {
    wire::ConnectionBlock block = connection_block();
    block.DnsCount = 0;
    const NetCMConnInfo info = delivered(block);
    EXPECT_EQ(info.DnsCount, 0);
    EXPECT_TRUE(is_empty(info.DnsAddr[0]));
}

TEST_F(ConnectionDetails, a_count_of_more_servers_than_there_are_is_two) {
    wire::ConnectionBlock block = connection_block();
    block.DnsCount = 100;
    const NetCMConnInfo info = delivered(block);
    EXPECT_EQ(info.DnsCount, 2);
    EXPECT_EQ(stored().DnsCount, 2);
    EXPECT_TRUE(is_ipv4(info.DnsAddr[1], 192, 0, 2, 54));
    EXPECT_TRUE(is_ipv4(info.IpAddr, 10, 1, 2, 3));
}

TEST_F(ConnectionDetails, a_negative_count_is_none) {
    wire::ConnectionBlock block = connection_block();
    block.DnsCount = -1;
    EXPECT_EQ(delivered(block).DnsCount, 0);
}

TEST_F(ConnectionDetails, of_an_address_of_another_type_only_the_type_is_carried) {
    wire::ConnectionBlock block = connection_block();
    block.IpAddr.Type = 1;
    const NetCMConnInfo info = delivered(block);
    EXPECT_EQ(info.IpAddr.Type, 1u);
    EXPECT_THAT(info.IpAddr.Addr, ::testing::Each(0));
}

TEST_F(ConnectionDetails, an_optional_address_without_its_flag_is_not_copied) {
    wire::ConnectionBlock block = connection_block();
    block.HasOptAddr1 = 0;
    block.HasOptAddr2 = 2;
    const NetCMConnInfo info = delivered(block);
    EXPECT_EQ(info.HasOptAddr1, 0);
    EXPECT_TRUE(is_empty(info.OptAddr1));
    EXPECT_EQ(info.HasOptAddr2, 2);
    EXPECT_TRUE(is_empty(info.OptAddr2));
}

TEST_F(ConnectionDetails, a_name_of_31_characters_is_carried_whole) {
    wire::ConnectionBlock block = connection_block();
    const std::string name(31, 'n');
    std::strcpy(block.IfaceName, name.c_str());
    EXPECT_EQ(delivered(block).IfaceName, name);
    EXPECT_EQ(stored().IfaceName, name);
}

TEST_F(ConnectionDetails, a_name_without_an_end_is_cut_at_31_characters) {
    wire::ConnectionBlock block = connection_block();
    std::fill(std::begin(block.IfaceName), std::end(block.IfaceName), 'n');
    EXPECT_EQ(delivered(block).IfaceName, std::string(31, 'n'));
    EXPECT_EQ(stored().IfaceName, std::string(31, 'n'));
}

TEST_F(ConnectionDetails, an_empty_name_is_carried_as_such) {
    wire::ConnectionBlock block = connection_block();
    block.IfaceName[0] = '\0';
    EXPECT_STREQ(delivered(block).IfaceName, "");
}

TEST_F(ConnectionDetails, a_late_joiner_gets_the_stored_record) {
    const NetCMConnInfo first = delivered(connection_block());
    registered(1);
    set_entry(0, 1, 1, {8});
    join(user(1), 7);
    const NetCMConnInfo late = *events::of(1).at(0).details;
    EXPECT_EQ(bytes_of(late), bytes_of(first));
}

TEST_F(ConnectionDetails, the_record_of_a_call_that_has_ended_does_not_show_in_the_next) {
    delivered(connection_block());
    ASSERT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_STOP_IND, 0)));
    EXPECT_EQ(bytes_of(stored()), Bytes(sizeof(NetCMCallConnInfo)));
}

TEST(CopyAddress, an_ipv4_address_is_copied_without_the_unused_bytes) {
    NetCMAddr to;
    memset(&to, 0xee, sizeof to);
    NetCMAddr from = ipv4(1, 2, 3, 4);
    from.Addr[4] = 5;
    EXPECT_EQ(NetCMCopyAddress(&to, &from), 1);
    EXPECT_TRUE(is_ipv4(to, 1, 2, 3, 4));
    EXPECT_EQ(to.Addr[4], 0xee);
}

TEST(CopyAddress, of_another_type_the_type_alone_is_copied) {
    NetCMAddr to = ipv4(9, 9, 9, 9);
    const NetCMAddr from = {.Type = 1, .Addr = {1, 2, 3, 4}};
    EXPECT_EQ(NetCMCopyAddress(&to, &from), 1);
    EXPECT_EQ(to.Type, 1u);
    EXPECT_EQ(to.Addr[0], 9);
    EXPECT_EQ(to.Addr[3], 9);
}

}  // namespace
}  // namespace quorvel::test
