// The sync socket: an answer belongs to its request and to no other.
#include "StreamTest.h"
#include "library/pm/pm_test.h"

namespace quorvel::test {
namespace {

class SyncStream : public StreamTest {};

// How much of an answer has come when its request is interrupted: nothing, half of its record, the record, 20
// bytes of its block.
constexpr size_t kBegun[] = {0, 20, 40, 60};

class InterruptedRequest : public StreamTest, public ::testing::WithParamInterface<Operation> {
  protected:
    // Request 1 is interrupted, request 2 follows.
    void interrupt_and_ask_again(size_t came, size_t piece, bool rest_comes_first) {
        const Operation& operation = GetParam();
        User& who = user(0);
        EXPECT_EQ(ask_and_interrupt(who, operation, 1, came, piece), -1);
        server.once(operation.command, Answer().bytes(operation.answer(2)));
        int32_t got = 0;
        trace::clear();
        if (rest_comes_first)
            let_the_rest_come();
        who.thread().start([&] { got = operation.ask(2); });
        if (!rest_comes_first) {
            EXPECT_TRUE(waits(who));
            let_the_rest_come();
        }
        who.thread().wait();
        EXPECT_EQ(got, 2) << "behind " << came << " bytes, the rest in pieces of " << piece;
        forget_calls();
    }
    // For each beginning of the answer that leaves something to come.
    void each_beginning(size_t pieces, bool rest_comes_first) {
        registered(0);
        const size_t length = GetParam().answer(1).size();
        for (const size_t came : kBegun)
            if (came < length)
                interrupt_and_ask_again(came, (length + pieces - 1) / pieces, rest_comes_first);
        EXPECT_EQ(registrations(), 1u) << "the link is as good as before";
    }
};

INSTANTIATE_TEST_SUITE_P(Of, InterruptedRequest,
                         ::testing::Values(kSettings, kAttributes, kProfile, kList, kOpen),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(InterruptedRequest, leaves_the_next_one_its_own_answer) {
    each_beginning(1, true);
}

TEST_P(InterruptedRequest, leaves_the_next_one_its_own_answer_when_the_rest_is_yet_to_come) {
    each_beginning(1, false);
}

TEST_P(InterruptedRequest, leaves_the_next_one_its_own_answer_when_the_rest_comes_in_pieces) {
    each_beginning(9, false);
}

// What is dropped is nobody's business: the trace of a request is that of any other.
TEST_F(SyncStream, what_is_owed_is_dropped_without_a_trace) {
    User& who = registered(0);
    const auto lines_of_a_request = [&] {
        trace::clear();
        EXPECT_EQ(ask(who, kSettings, 2), 2);
        std::vector<std::string> texts;
        for (const TraceLine& line : trace::lines())
            if (line.thread == who.tid())
                texts.push_back(line.text);
        return texts;
    };
    const std::vector<std::string> undisturbed = lines_of_a_request();
    EXPECT_EQ(ask_and_interrupt(who, kProfile, 1, 60, 100), -1);
    let_the_rest_come();
    EXPECT_EQ(lines_of_a_request(), undisturbed);
}

TEST_F(SyncStream, two_interrupted_requests_in_a_row_leave_the_third_its_own_answer) {
    User& who = registered(0);
    EXPECT_EQ(ask_and_interrupt(who, kProfile, 1, 60, 100), -1);
    let_the_rest_come();
    EXPECT_EQ(ask_and_interrupt(who, kList, 2, 20, 7), -1);
    let_the_rest_come();
    EXPECT_EQ(ask(who, kAttributes, 3), 3);
    EXPECT_EQ(registrations(), 1u);
}

TEST_F(SyncStream, a_signal_may_interrupt_the_wait_for_what_is_owed_too) {
    User& who = registered(0);
    EXPECT_EQ(ask_and_interrupt(who, kProfile, 1, 60, 100), -1);
    int32_t got = 0;
    trace::clear();
    who.thread().start([&] { got = kSettings.ask(2); });
    EXPECT_TRUE(interrupts_.end(who.thread()));
    EXPECT_EQ(got, -1);
    let_the_rest_come();
    EXPECT_EQ(ask(who, kSettings, 3), 3);
    EXPECT_EQ(server.count(kSettings.command), 1u) << "the one that failed has not been sent";
    EXPECT_EQ(registrations(), 1u);
}

// They look like the answer to what is asked next.
TEST_F(SyncStream, bytes_that_nobody_asked_for_are_dropped_in_front_of_a_request) {
    User& who = registered(0);
    const Bytes unasked = kSettings.answer(3) + filled(17);
    EXPECT_EQ(ask(who, kSettings, 1, kSettings.answer(1) + unasked), 1);
    EXPECT_EQ(ask(who, kSettings, 2, kSettings.answer(2) + unasked + unasked), 2);
    EXPECT_EQ(ask(who, kProfile, 4), 4);
    EXPECT_EQ(registrations(), 1u);
}

// The record has come, the block is on its way.
TEST_F(SyncStream, extended_data_without_memory_are_gone_before_the_next_request) {
    User& who = registered(0);
    const Bytes answer = kProfile.answer(1);
    const auto gate = std::make_shared<Gate>();
    server.once(
        kProfile.command,
        Answer().bytes(first_bytes(answer, 40)).wait_at(gate).in_pieces(bytes_behind(answer, 40), 100));
    calls::fail(Call::Malloc, 2);  // the first is for the request
    EXPECT_EQ(who.run([] { return kProfile.ask(1); }), -1);
    EXPECT_TRUE(trace::contains("Memory allocation failed \n"));
    int32_t got = 0;
    server.once(kAttributes.command, Answer().bytes(kAttributes.answer(2)));
    trace::clear();
    who.thread().start([&] { got = kAttributes.ask(2); });
    EXPECT_TRUE(waits(who));
    gate->open();
    who.thread().wait();
    EXPECT_EQ(got, 2);
    EXPECT_EQ(registrations(), 1u);
}

// What the library's own functions do for themselves.
class RequestByHand : public SyncStream {
  protected:
    uint32_t send_status_request(User& who) {
        return who.run([] {
            wire::RequestHeader header = {};
            header.Command = wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ;
            header.Arg3 = NETCM_IFACE_PDP;
            pthread_mutex_lock(&NetCMAppMutex);
            const uint32_t result = NetCMSendRequest(g_NetCMClientAppInfo.SyncSockFd, &header, sizeof header);
            pthread_mutex_unlock(&NetCMAppMutex);
            return result;
        });
    }
};

TEST_F(RequestByHand, is_not_sent_when_the_wait_for_what_is_owed_fails) {
    User& who = registered(0);
    EXPECT_EQ(ask_and_interrupt(who, kProfile, 1, 60, 100), -1);
    calls::fail(Call::Poll, 1, EINTR);
    EXPECT_EQ(send_status_request(who), NETCM_ERR_FAILURE);
    calls::reset();
    let_the_rest_come();
    EXPECT_EQ(ask(who, kSettings, 3), 3);
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ), 0u);
    EXPECT_EQ(registrations(), 1u);
}

// Nobody waits for a gigabyte.
TEST_F(RequestByHand, behind_a_block_that_nobody_can_owe_loses_the_link) {
    User& who = registered(0);
    Bytes answer = kProfile.answer(1);
    auto* record = reinterpret_cast<wire::Record*>(answer.data());
    reinterpret_cast<wire::PmResponseBlock*>(&record->Word1)->ExtDataLength = 1u << 30;
    server.once(kProfile.command, Answer().bytes(first_bytes(answer, sizeof(wire::Record))));
    calls::fail(Call::Poll, 1, EINTR);
    EXPECT_EQ(who.run([] { return kProfile.ask(1); }), -1);
    calls::reset();
    EXPECT_EQ(send_status_request(who), NETCM_ERR_FAILURE);
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(ask(who, kSettings, 3), 3) << "on a new one";
    EXPECT_EQ(registrations(), 2u);
}

}  // namespace
}  // namespace quorvel::test
