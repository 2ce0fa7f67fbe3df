// Call statistics.
#include "library/calls/CallTest.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kGet = wire::NETCM_CLIENT_GET_STAT_INFO_REQ;
constexpr uint32_t kReset = wire::NETCM_CLIENT_RESET_STAT_INFO_REQ;

class Statistics : public CallTest {
  protected:
    uint32_t counters[6] = {9, 9, 9, 9, 9, 9};

    uint32_t get(User& who) {
        return who.run([this] { return NetCMGetStatInfo(counters); });
    }
    uint32_t reset(User& who, uint32_t level) {
        return who.run([=] { return NetCMResetStatInfo(level); });
    }
};

TEST_F(Statistics, the_six_counters_are_copied_in_order) {
    User& who = registered(0);
    server.on(kGet,
              Answer().record(answer_record(kGet)).block(wire::StatisticsBlock{{1, 2, 3, 4, 5, 0xffffffff}}));
    EXPECT_EQ(get(who), NETCM_SUCCESS);
    EXPECT_THAT(counters, ::testing::ElementsAre(1, 2, 3, 4, 5, 0xffffffff));
}

TEST_F(Statistics, a_null_array_is_refused_even_before_the_registration) {
    EXPECT_EQ(user(0).run([] { return NetCMGetStatInfo(nullptr); }), NETCM_ERR_INVALID_PARAM);
    EXPECT_EQ(calls::count(Call::MutexLock), 0u);
}

TEST_F(Statistics, a_block_that_does_not_come_fails_and_leaves_the_counters_alone) {
    User& who = registered(0);
    server.on(kGet, Answer().record(answer_record(kGet)));
    // The first poll waits for the record, the second for the block.
    calls::before(
        Call::Poll, [] { calls::answer_next_poll(0); }, 2);
    EXPECT_EQ(get(who), NETCM_ERR_FAILURE);
    EXPECT_THAT(counters, ::testing::Each(9));
    EXPECT_TRUE(traced_in_order(
        {{2, "Received response = 107 \n"}, {3, "Error reading call statistics response\n"}}));
}

TEST_F(Statistics, a_block_in_pieces_is_put_together) {
    User& who = registered(0);
    const wire::StatisticsBlock block{{1, 2, 3, 4, 5, 6}};
    server.on(kGet, Answer().record(answer_record(kGet)).in_pieces(bytes_of(block), 5));
    EXPECT_EQ(get(who), NETCM_SUCCESS);
    EXPECT_THAT(counters, ::testing::ElementsAre(1, 2, 3, 4, 5, 6));
}

TEST_F(Statistics, a_refusal_has_no_block) {
    User& who = registered(0);
    server.on(kGet, refusal(kGet, 33));
    EXPECT_EQ(get(who), 33u);
    EXPECT_THAT(counters, ::testing::Each(9));
}

TEST_F(Statistics, every_level_can_be_reset) {
    User& who = registered(0);
    for (uint32_t level = 0; level <= 4; ++level) {
        EXPECT_EQ(reset(who, level), NETCM_SUCCESS);
        const wire::RequestHeader expected = {11, 0, server.client_id(), 0, level, 0};
        EXPECT_EQ(bytes_of(server.last(kReset)->header), bytes_of(expected));
    }
}

TEST_F(Statistics, other_levels_are_refused) {
    User& who = registered(0);
    for (const uint32_t level : {5u, 0xffffffffu}) {
        EXPECT_EQ(reset(who, level), NETCM_ERR_INVALID_PARAM);
        EXPECT_TRUE(
            traced_in_order({{5, trace::text("Invalid Reset Level [%d]\n", static_cast<int>(level))}}));
    }
    EXPECT_EQ(server.count(kReset), 0u);
}

TEST_F(Statistics, before_the_registration_the_level_is_not_looked_at) {
    EXPECT_EQ(reset(user(0), 5), NETCM_ERR_NOT_REGISTERED);
    EXPECT_TRUE(traced_in_order(
        {{0, "Request to reset statistics information \n"}, {2, "Cleint is not registered with CM\n"}}));
}

}  // namespace
}  // namespace quorvel::test
