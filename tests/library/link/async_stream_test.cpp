// The async socket: what cannot be taken is skipped whole, and never read as records.
#include "StreamTest.h"
#include "library/pm/pm_test.h"
#include "support/Emulator.h"

namespace quorvel::test {
namespace {

constexpr char kPass[] = "In quorvel Thread loop \n";
constexpr char kNoMemory[] = "Memory can't be allocated for data.Data\n";

// What a reader out of step would take for the end of the call 0, again and again.
Bytes forged(size_t size) {
    const Bytes one = bytes_of(indication(wire::NETCM_CLIENT_STOP_IND, 0, 7, 66));
    Bytes bytes;
    while (bytes.size() < size)
        bytes.insert(bytes.end(), one.begin(), one.end());
    bytes.resize(size);
    return bytes;
}

// A connection block begins with a count.
Bytes forged_block() {
    Bytes block = forged(sizeof(wire::ConnectionBlock));
    const Bytes count = bytes_of(int32_t{2});
    std::copy(count.begin(), count.end(), block.begin());
    return block;
}

wire::Record tunnel(uint32_t code, size_t length) {
    wire::Record record{};
    record.Code = code;
    record.Word2 = static_cast<uint32_t>(length);
    record.CallId = 5;
    return record;
}

class AsyncStream : public StreamTest {
  protected:
    // The user 0 has the call 0, up; and the call 1 is being opened.
    AsyncStream() {
        User& who = registered(0);
        bring_up(who, 7);
        EXPECT_EQ(who.open(8), NETCM_SUCCESS);
        EXPECT_TRUE(settled());
        events::clear();
        trace::clear();
        waits_before_ = calls::count(Call::Poll);
    }

    // Each piece is taken before the next one comes.
    void push_in_pieces(const Bytes& bytes, size_t size) {
        for (size_t from = 0; from < bytes.size(); from += size) {
            const size_t passes = trace::count(kPass);
            ASSERT_TRUE(
                server.push(first_bytes(bytes_behind(bytes, from), std::min(size, bytes.size() - from))));
            ASSERT_TRUE(trace::wait_for(kPass, passes + 1));
        }
    }

    // Nothing of it was taken for a record, and the next event reaches its user.
    void expect_in_step() {
        EXPECT_TRUE(settled());
        EXPECT_EQ(events::count(), 0u);
        size_t unknown = 0;
        for (const std::string& text : trace::texts())
            unknown += text.starts_with("Unknown command") ? 1 : 0;
        EXPECT_EQ(unknown, 1u) << "the marker of the test";
        EXPECT_TRUE(push_and_settle(indication(wire::NETCM_CLIENT_STOP_IND, 0, 7, 9)));
        EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 7, 9}}));
    }

    // For a block.
    size_t waits() const { return calls::count(Call::Poll) - waits_before_; }

  private:
    size_t waits_before_ = 0;
};

// A record, and what comes behind it too late or cannot be held.
struct Skipped {
    const char* name;
    wire::Record record;
    Bytes data;
    bool no_memory;
    size_t begun;  // bytes of it that come in time

    friend std::ostream& operator<<(std::ostream& out, const Skipped& one) { return out << one.name; }
};

class SkippedData : public AsyncStream, public ::testing::WithParamInterface<std::tuple<Skipped, size_t>> {};

const Skipped kSkipped[] = {
    {"start_response", start_response(1, 8), forged_block(), false, 0},
    {"begun_start_response", start_response(1, 8), forged_block(), false, 10},
    {"ip_change", indication(wire::NETCM_CLIENT_IP_CHANGE_IND, 0), forged_block(), false, 0},
    {"begun_ip_change", indication(wire::NETCM_CLIENT_IP_CHANGE_IND, 0), forged_block(), false, 143},
    {"tunnel_indication", tunnel(wire::NETCM_CLIENT_TUNNEL_IND, 400), forged(400), false, 0},
    {"begun_tunnel_indication", tunnel(wire::NETCM_CLIENT_TUNNEL_IND, 400), forged(400), false, 55},
    {"tunnel_response", tunnel(wire::NETCM_CLIENT_TUNNEL_RSP, 400), forged(400), false, 0},
    {"tunnel_indication_without_memory", tunnel(wire::NETCM_CLIENT_TUNNEL_IND, 400), forged(400), true, 0},
    {"tunnel_response_without_memory", tunnel(wire::NETCM_CLIENT_TUNNEL_RSP, 400), forged(400), true, 0},
};

INSTANTIATE_TEST_SUITE_P(Of, SkippedData,
                         ::testing::Combine(::testing::ValuesIn(kSkipped),
                                            ::testing::Values(size_t{1}, size_t{39}, size_t{40},
                                                              size_t{9000})),
                         [](const auto& instance) {
                             return std::get<0>(instance.param).name + std::string("_in_pieces_of_") +
                                    std::to_string(std::get<1>(instance.param));
                         });

TEST_P(SkippedData, is_never_read_as_records) {
    const auto& [skipped, piece] = GetParam();
    if (skipped.no_memory)
        calls::fail(Call::Malloc, 2);  // the first is for the record
    else if (skipped.begun == 0)
        calls::answer_next_poll(0);
    else
        calls::before(
            Call::Poll, [] { calls::answer_next_poll(0); }, 2);
    ASSERT_TRUE(server.push(bytes_of(skipped.record) + first_bytes(skipped.data, skipped.begun)));
    ASSERT_TRUE(trace::wait_for(skipped.no_memory ? kNoMemory : kTimedOut));
    push_in_pieces(bytes_behind(skipped.data, skipped.begun), piece);
    expect_in_step();
    EXPECT_EQ(trace::count(kTimedOut), skipped.no_memory ? 0u : 1u);
}

TEST_F(AsyncStream, tunnel_data_larger_than_any_buffer_are_skipped_whole) {
    calls::fail(Call::Malloc, 2);
    ASSERT_TRUE(server.push(bytes_of(tunnel(wire::NETCM_CLIENT_TUNNEL_IND, 1'000'000)) + forged(1'000'000)));
    ASSERT_TRUE(trace::wait_for(kNoMemory));
    expect_in_step();
}

TEST_F(AsyncStream, a_block_that_is_too_late_and_never_comes_costs_the_next_record_nothing) {
    calls::answer_next_poll(0);
    ASSERT_TRUE(server.push(start_response(1, 8)));
    ASSERT_TRUE(trace::wait_for(kTimedOut));
    expect_in_step();
    EXPECT_EQ(waits(), 1u);
}

TEST_F(AsyncStream, a_dropped_start_response_goes_with_its_block_in_any_pieces) {
    ASSERT_TRUE(server.push(start_response(3, 9), connection_block()));
    for (const size_t piece : {1u, 2u, 3u, 5u, 144u}) {
        ASSERT_TRUE(server.push(start_response(3, 9)));
        push_in_pieces(forged_block(), piece);
    }
    expect_in_step();
    EXPECT_EQ(waits(), 0u);
}

TEST_F(AsyncStream, a_dropped_record_without_a_block_costs_the_next_record_nothing) {
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(server.push(start_response(3, 9)));
    ASSERT_TRUE(server.push(bytes_of(start_response(3, 9)) +
                            bytes_of(indication(wire::NETCM_CLIENT_SUSPEND_IND, 0, 7))));
    ASSERT_TRUE(events::wait_for(1));
    events::clear();
    expect_in_step();
    EXPECT_EQ(waits(), 0u);
}

TEST_F(AsyncStream, a_signal_does_not_interrupt_the_wait_for_a_block) {
    const int32_t receiver = receiver_tid();
    trace::clear();
    ASSERT_TRUE(server.push(start_response(1, 8)));
    ASSERT_TRUE(trace::wait_for("Received start response from server \n"));
    ASSERT_TRUE(eventually([this] { return waits() == 1; }));
    ASSERT_TRUE(eventually([=] { return sleeps(receiver); }));
    for (int i = 0; i < 20; ++i) {
        Interrupts::send(receiver);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_FALSE(trace::contains("Polling unknown error \n"));
    ASSERT_TRUE(server.push(bytes_of(connection_block())));
    ASSERT_TRUE(events::wait_for(1));
    ASSERT_TRUE(events::all().front().details.has_value());
    EXPECT_STREQ(events::all().front().details->IfaceName, "pdp0");
    // An emulator keeps what its ppoll has held back.
    EXPECT_TRUE(is_emulated() || eventually([] { return Interrupts::caught() > 0; })) << "and is not lost";
}

TEST_F(AsyncStream, a_server_that_ends_where_a_block_may_follow_is_seen_to_end) {
    ASSERT_TRUE(server.push(start_response(2, 9)));
    server.close_async();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 7, kServerGone},
                                         {0, NETCM_EVENT_STOP_IND, 8, kServerGone}}));
}

TEST_F(AsyncStream, nothing_that_comes_where_a_block_may_follow_is_nothing_yet) {
    const Bytes dropped = bytes_of(start_response(2, 9));
    push_in_pieces(dropped, dropped.size());
    calls::fail(Call::Receive, 1, EAGAIN);
    ASSERT_TRUE(settled());
    EXPECT_TRUE(calls::has_failed(Call::Receive));
    EXPECT_EQ(told(), std::vector<Told>{});
}

TEST_F(AsyncStream, a_record_that_comes_in_two_parts_where_a_block_may_follow_is_read_whole) {
    ASSERT_TRUE(server.push(start_response(2, 9)));
    const Bytes record = bytes_of(indication(wire::NETCM_CLIENT_SUSPEND_IND, 0, 7));
    push_in_pieces(first_bytes(record, 4), 4);
    push_in_pieces(bytes_behind(record, 4), record.size());
    ASSERT_TRUE(settled());
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_SUSPEND_IND, 7, 0}}));
}

TEST_F(AsyncStream, a_record_that_comes_where_a_block_may_follow_is_read_whole) {
    ASSERT_TRUE(server.push(bytes_of(start_response(2, 9)) +
                            bytes_of(indication(wire::NETCM_CLIENT_SUSPEND_IND, 0, 7))));
    ASSERT_TRUE(settled());
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_SUSPEND_IND, 7, 0}}));
}

}  // namespace
}  // namespace quorvel::test
