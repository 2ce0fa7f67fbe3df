// What makes a link of no more use although the server is still there: its users are told as when the server
// has gone, and the next request registers anew.
#include <thread>
#include <tuple>

#include "StreamTest.h"
#include "library/pm/pm_test.h"

namespace quorvel::test {
namespace {

constexpr int32_t kServerGone = 2;

class LostLink : public StreamTest {
  protected:
    // Users 0 and 1 have a call, user 2 asks.
    LostLink() {
        bring_up(StreamTest::registered(0), 7);
        join(StreamTest::registered(1), 7);
        StreamTest::registered(2);
        events::clear();
        trace::clear();
    }
    User& asker() { return user(2); }

    // Asks, and lets the time be over when so many bytes of the answer have come.
    void time_out(const Operation& operation, size_t came) {
        // One wait for each thing that has come, and one for what has not.
        const size_t wait = came < 40 ? (came == 0 ? 1 : 2) : (came == 40 ? 2 : 3);
        calls::before(
            Call::Poll, [] { calls::answer_next_poll(0); }, wait);
        EXPECT_EQ(ask(asker(), operation, 1, first_bytes(operation.answer(1), came)), -1);
        EXPECT_EQ(trace::count(kTimedOut), 1u);
    }

    // The very next request finds another link, and everybody has been told of the end of the one before.
    void expect_new_link() {
        EXPECT_EQ(ask(asker(), kSettings, 2), 2);
        EXPECT_EQ(registrations(), 2u);
        EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 7, kServerGone},
                                             {1, NETCM_EVENT_STOP_IND, 7, kServerGone}}));
        EXPECT_TRUE(is_free(0));
        bring_up(user(0), 7);
    }
};

class TimedOutRequest : public LostLink,
                        public ::testing::WithParamInterface<std::tuple<Operation, size_t>> {};

INSTANTIATE_TEST_SUITE_P(Of, TimedOutRequest,
                         ::testing::Combine(::testing::Values(kProfile, kList),
                                            ::testing::Values(size_t{0}, size_t{20}, size_t{40}, size_t{60})),
                         [](const auto& instance) {
                             return std::get<0>(instance.param).name + std::string("_behind_") +
                                    std::to_string(std::get<1>(instance.param));
                         });

TEST_P(TimedOutRequest, fails_once_and_breaks_the_link) {
    time_out(std::get<0>(GetParam()), std::get<1>(GetParam()));
    expect_new_link();
    EXPECT_EQ(trace::count(kTimedOut), 1u);
}

TEST_F(LostLink, what_is_owed_and_does_not_come_breaks_it_at_the_next_request) {
    EXPECT_EQ(ask_and_interrupt(asker(), kProfile, 1, 60, 1000), -1);
    EXPECT_TRUE(settled());
    EXPECT_EQ(events::count(), 0u) << "what is owed may still come";
    calls::answer_next_poll(0);
    // The server stands at the answer that it does not give until it sees the end of the link.
    std::jthread server_goes_on([this] {
        EXPECT_TRUE(trace::wait_for("Quorvel connection got reset, close the thread \n"));
        let_the_rest_come();
    });
    expect_new_link();
    EXPECT_EQ(trace::count(kTimedOut), 0u) << "not traced: nobody asked for it any more";
}

TEST_F(LostLink, extended_data_above_16_mib_are_refused_unread_and_break_it) {
    wire::PmResponseBlock block = {};
    block.RspCode = wire::kPmAnswer + wire::NETPM_CLIENT_GET_PROFILE_REQ;
    block.ExtDataLength = (16U << 20) + 1;
    const size_t waits_before = calls::count(Call::Poll);
    EXPECT_EQ(ask(asker(), kProfile, 1, bytes_of(pm_record(block)) + filled(100)), -1);
    EXPECT_EQ(calls::count(Call::Poll), waits_before + 1) << "for the record";
    EXPECT_TRUE(trace::contains("Memory allocation failed \n"));
    expect_new_link();
}

// Behind an interrupted request as well.
TEST_F(LostLink, an_owed_record_that_announces_more_than_16_mib_breaks_it) {
    wire::PmResponseBlock block = {};
    block.RspCode = wire::kPmAnswer + wire::NETPM_CLIENT_GET_PROFILE_REQ;
    block.ExtDataLength = 0xffffffff;
    static const Bytes answer = bytes_of(pm_record(block));
    const Operation operation = {"too much", kProfile.command, [](int32_t) { return answer; }, kProfile.ask};
    EXPECT_EQ(ask_and_interrupt(asker(), operation, 1, 20, 40), -1);
    let_the_rest_come();
    expect_new_link();
}

class LargeTunnelRequest : public LostLink {
  protected:
    // 3 MB to a server that does not read.
    uint32_t request() {
        NetCMTunnelData record = {.Param = 0,
                                  .RequestId = 0,
                                  .DataLength = static_cast<uint32_t>(data_.size()),
                                  .Data = data_.data()};
        return NetCMTunnelRequest(&record);
    }
    void expect_not_sent() {
        EXPECT_TRUE(eventually(link_is_broken));
        EXPECT_FALSE(trace::contains("Sent Tunnel Request to the CM server \n"));
        EXPECT_TRUE(with_table([](const NetCMClientAppInfo& table) {
            return table.TunnelReq[0].ThreadId == -1 && table.TunnelReq[0].RequestId == -1;
        }));
    }

  private:
    std::vector<char> data_ = std::vector<char>(3'000'000, 'd');
};

TEST_F(LargeTunnelRequest, that_a_signal_cuts_is_not_sent_and_breaks_the_link) {
    {
        const Held held(server);
        uint32_t result = 99;
        asker().thread().start([&] { result = request(); });
        ASSERT_TRUE(waits(asker()));
        EXPECT_TRUE(interrupts_.end(asker().thread()));
        EXPECT_EQ(result, NETCM_ERR_FAILURE);
    }
    expect_not_sent();
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_TUNNEL_REQ), 0u);
    expect_new_link();
}

using LargeTunnelRequestSlow = LargeTunnelRequest;

TEST_F(LargeTunnelRequestSlow, to_a_server_that_never_reads_fails_after_60_seconds) {
    {
        const Held held(server);
        const auto before = std::chrono::steady_clock::now();
        EXPECT_EQ(asker().run([&] { return request(); }), NETCM_ERR_FAILURE);
        const auto waited = std::chrono::steady_clock::now() - before;
        EXPECT_GE(waited, std::chrono::milliseconds(59'900));
        EXPECT_LT(waited, std::chrono::seconds(65));
    }
    expect_not_sent();
    expect_new_link();
}

}  // namespace
}  // namespace quorvel::test
