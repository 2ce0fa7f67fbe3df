// The three lists of what is connected.
#include "library/calls/CallTest.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kUntouched = 0xee;

uint32_t pdp_connections(uint8_t* list, uint32_t* count) {
    return NetCMGetActiveConnectionList(NETCM_IFACE_PDP, list, count);
}

// One list: how it is asked for, and the shape of its block.
struct List {
    const char* name;
    uint32_t (*ask)(uint8_t* out, uint32_t* count);
    uint32_t command;
    size_t entry_size;
    uint32_t most;
    const char* no_block;
    const char* requested;
    const char* unregistered;

    size_t block_size() const { return 4 + most * entry_size; }
};

void PrintTo(const List& list, std::ostream* out) {
    *out << list.name;
}

const List kLists[] = {
    {"profile_ids", NetCMGetActiveProfileIDs, wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ, 4, 16,
     "Error reading Active profile ID response\n", "Request to get active Profile ids list \n",
     "Cleint is not yet registered with CM\n"},
    {"profile_names", NetCMGetActiveProfileNameList, wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_REQ, 100,
     16, "Error getting active profile name list response\n", "Request to get active profile name list \n",
     "Cleint is not registered with CM\n"},
    {"connections", pdp_connections, wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ, 176, 4,
     "Error active APN list response\n", "Request to get active APN list \n",
     "Cleint is not registered with CM\n"},
};

class Lists : public CallTest, public ::testing::WithParamInterface<List> {
  protected:
    const List& list() { return GetParam(); }

    // A block that says `count`, every byte of its entries different from its neighbours.
    Bytes block(uint32_t count) {
        Bytes bytes = bytes_of(count);
        while (bytes.size() < list().block_size())
            bytes.push_back(static_cast<std::byte>(bytes.size() * 7));
        return bytes;
    }
    void serve(const Bytes& block) {
        server.on(list().command, Answer().record(answer_record(list().command)).bytes(block));
    }
    uint32_t ask(User& who) {
        room_ = Bytes(list().block_size(), std::byte{kUntouched});
        count_ = kUntouched;
        return who.run([this] { return list().ask(reinterpret_cast<uint8_t*>(room_.data()), &count_); });
    }
    uint32_t count() const { return count_; }
    // What was written for `entries` entries, and that nothing was written behind them.
    void expect_entries(uint32_t entries) {
        const Bytes sent = block(0);
        const auto length = static_cast<std::ptrdiff_t>(entries * list().entry_size);
        EXPECT_TRUE(std::equal(room_.begin(), room_.begin() + length, sent.begin() + 4));
        EXPECT_TRUE(std::all_of(room_.begin() + length, room_.end(),
                                [](std::byte byte) { return byte == std::byte{kUntouched}; }));
    }
    // The outcome of every path but a copied list.
    void expect_no_list(User& who, uint32_t status) {
        set_last_error(5);
        EXPECT_EQ(ask(who), status);
        EXPECT_EQ(count(), 0u);
        expect_entries(0);
    }

  private:
    Bytes room_;
    uint32_t count_ = 0;
};

TEST_P(Lists, as_many_entries_as_the_server_counts_are_copied) {
    User& who = registered(0);
    for (uint32_t entries = 1; entries <= list().most; ++entries) {
        serve(block(entries));
        set_last_error(5);
        ASSERT_EQ(ask(who), NETCM_SUCCESS);
        EXPECT_EQ(count(), entries);
        expect_entries(entries);
        EXPECT_EQ(who.transport_error(), 5) << "a success leaves it alone";
    }
}

TEST_P(Lists, no_entry_is_not_active) {
    User& who = registered(0);
    serve(block(0));
    expect_no_list(who, NETCM_ERR_NOT_ACTIVE);
    EXPECT_EQ(who.transport_error(), -1);
}

TEST_P(Lists, a_count_of_more_entries_than_the_block_has_is_limited) {
    User& who = registered(0);
    for (const uint32_t entries : {list().most + 1, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        serve(block(entries));
        EXPECT_EQ(ask(who), NETCM_SUCCESS);
        EXPECT_EQ(count(), list().most);
        expect_entries(list().most);
    }
}

TEST_P(Lists, a_block_in_pieces_is_put_together) {
    User& who = registered(0);
    server.on(
        list().command,
        Answer().record(answer_record(list().command)).in_pieces(block(2), list().block_size() / 3 + 1));
    EXPECT_EQ(ask(who), NETCM_SUCCESS);
    expect_entries(2);
}

TEST_P(Lists, the_next_request_finds_the_stream_in_step) {
    User& who = registered(0);
    serve(block(1));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(ask(who), NETCM_SUCCESS);
}

// The end comes when the record has been read: a socket that is at its end is not read any more.
TEST_P(Lists, a_block_that_is_cut_short_fails) {
    User& who = registered(0);
    Bytes half = block(2);
    half.pop_back();
    const auto gate = std::make_shared<Gate>();
    server.on(list().command,
              Answer().record(answer_record(list().command)).bytes(half).wait_at(gate).close());
    const auto reading = trace::on_line([&](const TraceLine& line) {
        if (line.text.starts_with("Received Requested Response"))
            gate->open();
    });
    expect_no_list(who, NETCM_ERR_FAILURE);
    EXPECT_TRUE(traced_in_order({{3, list().no_block}}));
    EXPECT_EQ(who.transport_error(), -1);
}

TEST_P(Lists, a_block_that_does_not_come_in_time_fails) {
    User& who = registered(0);
    // The first poll waits for the record, the second for the block.
    calls::before(
        Call::Poll, [] { calls::answer_next_poll(0); }, 2);
    server.on(list().command, Answer().record(answer_record(list().command)));
    expect_no_list(who, NETCM_ERR_FAILURE);
    EXPECT_TRUE(traced_in_order({{3, "POLLing timeout  \n", kInternal}, {3, list().no_block}}));
}

TEST_P(Lists, every_failed_exchange_forgets_the_last_error) {
    User& who = registered(0);
    for (const Answer& answer : {refusal(list().command, 33, 44), wrong_code(121), hang_up()}) {
        server.on(list().command, answer);
        set_last_error(5);
        EXPECT_NE(ask(who), NETCM_SUCCESS);
        EXPECT_EQ(who.transport_error(), -1);
    }
}

TEST_P(Lists, a_request_that_cannot_be_sent_forgets_the_last_error) {
    User& who = registered(0);
    calls::fail(Call::Send);
    expect_no_list(who, NETCM_ERR_FAILURE);
    EXPECT_EQ(who.transport_error(), -1);
}

TEST_P(Lists, a_link_that_cannot_be_repaired_forgets_the_last_error) {
    User& who = registered(0);
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    expect_no_list(who, NETCM_ERR_REREGISTER_FAILED);
    EXPECT_EQ(who.transport_error(), -1);
}

TEST_P(Lists, only_the_calling_threads_last_error_is_forgotten) {
    User& who = registered(0);
    User& other = registered(1);
    server.on(list().command, refusal(list().command, 33));
    expect_no_list(who, 33);
    EXPECT_EQ(other.transport_error(), 5);
}

TEST_P(Lists, null_pointers_are_refused_even_before_the_registration) {
    uint8_t room[1600];
    uint32_t count = kUntouched;
    EXPECT_EQ(list().ask(nullptr, &count), NETCM_ERR_INVALID_PARAM);
    EXPECT_EQ(list().ask(room, nullptr), NETCM_ERR_INVALID_PARAM);
    EXPECT_TRUE(traced_in_order({{5, "Invalid input parameter \n"}, {5, "Invalid input parameter \n"}}));
    EXPECT_EQ(calls::count(Call::MutexLock), 0u);
}

TEST_P(Lists, an_unregistered_process_is_refused) {
    expect_no_list(user(0), NETCM_ERR_NOT_REGISTERED);
    EXPECT_TRUE(traced_in_order({{0, list().requested}, {2, list().unregistered}}));
}

TEST_P(Lists, an_unregistered_thread_is_refused) {
    registered(0);
    expect_no_list(user(1), NETCM_ERR_NOT_REGISTERED);
    EXPECT_TRUE(traced_in_order({{0, list().requested}, {2, "Thread info not found with CM\n"}}));
    EXPECT_EQ(server.count(list().command), 0u);
}

INSTANTIATE_TEST_SUITE_P(List, Lists, ::testing::ValuesIn(kLists),
                         [](const auto& one) { return std::string(one.param.name); });

using ConnectionList = CallTest;

TEST_F(ConnectionList, only_the_two_interfaces_have_one) {
    User& who = registered(0);
    uint8_t room[4 * 176];
    uint32_t count = 0;
    for (const uint32_t net_iface : {0u, 3u, 0xffffffffu}) {
        EXPECT_EQ(who.run([&] { return NetCMGetActiveConnectionList(net_iface, room, &count); }),
                  NETCM_ERR_INVALID_PARAM);
        EXPECT_TRUE(traced_in_order(
            {{5, trace::text("Invalid input parameter. NetIface = %d \n", static_cast<int>(net_iface))}}));
    }
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ), 0u);
}

TEST_F(ConnectionList, the_interface_travels_in_the_first_argument) {
    User& who = registered(0);
    uint8_t room[4 * 176];
    uint32_t count = 0;
    for (const uint32_t net_iface : {1u, 2u}) {
        who.run([&] { return NetCMGetActiveConnectionList(net_iface, room, &count); });
        const wire::RequestHeader expected = {14, net_iface, server.client_id(), 0, 0, 0};
        EXPECT_EQ(bytes_of(server.last(wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ)->header),
                  bytes_of(expected));
    }
}

using ListSlow = CallTest;

TEST_F(ListSlow, a_block_is_given_up_after_10_seconds) {
    User& who = registered(0);
    server.on(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ,
              Answer().record(answer_record(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ)));
    uint8_t room[64];
    uint32_t count = 0;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(who.run([&] { return NetCMGetActiveProfileIDs(room, &count); }), NETCM_ERR_FAILURE);
    const auto taken = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(taken, std::chrono::milliseconds(9900));
    EXPECT_LE(taken, std::chrono::milliseconds(15000));
}

}  // namespace
}  // namespace quorvel::test
