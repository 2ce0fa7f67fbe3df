// From a pushed record to its processor.
#include <sys/socket.h>
#include <unistd.h>

#include "support/ClientTest.h"

namespace quorvel::test {
namespace {

constexpr char kUnit[] = "client/CM/src/NetCMClientInternal";

using Dispatch = ClientTest;

struct Entry {
    uint32_t code;
    const char* message;
};

constexpr Entry kEntries[] = {
    {101, "Received start response from server \n"},
    {102, "Received stop response from server \n"},
    {104, "Received tunnel response from server \n"},
    {105, "Received kill response from server \n"},
    {109, "Received stop indication from server \n"},
    {110, "Received Suspend indication from server \n"},
    {111, "Received Resume indication from server \n"},
    {112, "Received tunnel indication from server \n"},
    {114, "Received proper profile response from server \n"},
    {122, "Received PDP/WLAN status change indication from server \n"},
    {123, "Received IP change indication from server \n"},
};

class DispatchOf : public ClientTest, public ::testing::WithParamInterface<Entry> {};

INSTANTIATE_TEST_SUITE_P(Code, DispatchOf, ::testing::ValuesIn(kEntries),
                         [](const auto& entry) { return std::to_string(entry.param.code); });

TEST_P(DispatchOf, is_announced_before_it_is_handled) {
    registered(0);
    // A refusal, and no tunnel data: nothing follows the record, whatever it is.
    ASSERT_TRUE(server.push(indication(GetParam().code, 3, 0, 1)));
    EXPECT_TRUE(trace::wait_for(GetParam().message));
    EXPECT_TRUE(trace::traced(0, GetParam().message, kUnit));
    EXPECT_TRUE(trace::traced(2, "Received data from CM 40.. struct size = 40\n", kUnit));
    // The thread carries on.
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    EXPECT_TRUE(events::wait_for(1));
}

TEST_F(Dispatch, an_unknown_code_is_named_and_dropped) {
    registered(0);
    for (const uint32_t code : {113u, 0u, 1u, 103u, 127u, 0xffffffffu}) {
        ASSERT_TRUE(server.push(indication(code, 0)));
        const std::string text = trace::text("Unknown command %d \n", static_cast<int>(code));
        EXPECT_TRUE(trace::wait_for(text));
        EXPECT_TRUE(trace::traced(2, text, kUnit));
    }
    EXPECT_EQ(events::count(), 0u);
}

TEST_F(Dispatch, happens_under_the_mutex_with_its_traces) {
    User& who = registered(0);
    trace::clear();
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    ASSERT_TRUE(events::wait_for(1));
    const Event event = events::all().front();
    EXPECT_TRUE(event.mutex_was_held);
    EXPECT_NE(event.thread, who.tid());
    EXPECT_TRUE(trace::wait_for(trace::text("Mutex unlocked by thread [%d] \n", event.thread)));
    EXPECT_TRUE(
        trace::contains_in_order({"Received data from CM 40.. struct size = 40\n",
                                  trace::text("Thread [%d] trying to lock the Mutex \n", event.thread),
                                  trace::text("Mutex locked by thread [%d] \n", event.thread),
                                  "Received PDP/WLAN status change indication from server \n",
                                  trace::text("Mutex unlocked by thread [%d] \n", event.thread)}));
}

TEST_F(Dispatch, the_record_in_hand_is_forgotten_behind_its_handler) {
    registered(0);
    uint32_t* during = nullptr;
    const auto looking = events::during([&](const Event&) { during = PendingEventRecord; });
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    ASSERT_TRUE(events::wait_for(1));
    ASSERT_TRUE(trace::wait_for("In quorvel Thread loop \n", 2));
    EXPECT_NE(during, nullptr);
    EXPECT_EQ(PendingEventRecord, nullptr);
}

// A record that arrives in two writes is two short records; a lone short one has zeros where words are
// missing.
TEST_F(Dispatch, a_short_record_is_handled_as_it_is) {
    registered(0);
    const uint32_t words[] = {wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0, 17};
    ASSERT_TRUE(server.push(bytes_of(words)));
    ASSERT_TRUE(events::wait_for(1));
    EXPECT_EQ(events::all().front().words, (std::vector<uint32_t>{17, 0}));
    EXPECT_TRUE(trace::traced(2, "Received data from CM 12.. struct size = 40\n", kUnit));
}

TEST_F(Dispatch, a_record_of_one_byte_does_not_reach_into_foreign_memory) {
    registered(0);
    ASSERT_TRUE(server.push(Bytes{std::byte{122}}));
    ASSERT_TRUE(events::wait_for(1));
    EXPECT_EQ(events::all().front().words, (std::vector<uint32_t>{0, 0}));
}

TEST_F(Dispatch, a_storm_is_handled_in_order_and_whole) {
    registered(0);
    constexpr uint32_t kRecords = 3000;
    for (uint32_t i = 0; i < kRecords; ++i)
        ASSERT_TRUE(server.push(
            indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0, static_cast<int32_t>(i))));
    ASSERT_TRUE(events::wait_for(kRecords));
    const std::vector<Event> all = events::all();
    for (uint32_t i = 0; i < kRecords; ++i)
        ASSERT_EQ(all[i].words[0], i);
}

TEST_F(Dispatch, the_callback_itself_says_what_was_read) {
    User& who = registered(0);
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const Bytes record = bytes_of(indication(wire::NETCM_CLIENT_SUSPEND_IND, 3));
    ASSERT_EQ(send(ends[1], record.data(), record.size(), 0), 40);
    EXPECT_EQ(who.run([&] { return NetCMClientLibCbk(ends[0]); }), 40);
    ASSERT_EQ(send(ends[1], record.data(), 7, 0), 7);
    EXPECT_EQ(who.run([&] { return NetCMClientLibCbk(ends[0]); }), 7);
    close(ends[1]);
    EXPECT_EQ(who.run([&] { return NetCMClientLibCbk(ends[0]); }), 0);
    close(ends[0]);
    EXPECT_EQ(who.run([&] { return NetCMClientLibCbk(ends[0]); }), -1);
    EXPECT_TRUE(trace::traced(5, "Error reading sock, connection closed. Error = [Success]\n", kUnit));
    EXPECT_TRUE(
        trace::traced(5, "Error reading sock, connection closed. Error = [Bad file descriptor]\n", kUnit));
}

TEST_F(Dispatch, no_memory_for_the_record_gives_minus_1) {
    User& who = registered(0);
    calls::fail(Call::Malloc);
    EXPECT_EQ(who.run([] { return NetCMClientLibCbk(0); }), -1);
    EXPECT_TRUE(trace::traced(4, "PANIC!!! Memory not allocated\n", kUnit));
    EXPECT_EQ(PendingEventRecord, nullptr);
}

TEST_F(Dispatch, a_table_without_an_async_socket_gives_minus_1) {
    EXPECT_EQ(user(0).run([] {
        NetCMClientLibInit();
        return NetCMClientLibCbk(0);
    }),
              -1);
    EXPECT_TRUE(trace::traced(4, "Invalid Async socket \n", kUnit));
    EXPECT_EQ(PendingEventRecord, nullptr);
}

}  // namespace
}  // namespace quorvel::test
