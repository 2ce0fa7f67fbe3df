// Call statistics.
#include "library/calls/CallTest.h"

namespace quorvel::test {
namespace {

using Statistics = CallTest;

TEST_F(Statistics, the_six_counters_are_copied_in_order) {
    User& who = registered(0);
    server.on(wire::NETCM_CLIENT_GET_STAT_INFO_REQ,
              Answer()
                  .record(answer_record(wire::NETCM_CLIENT_GET_STAT_INFO_REQ))
                  .block(wire::StatisticsBlock{{1, 2, 3, 4, 5, 0xffffffff}}));
    uint32_t counters[6] = {};
    EXPECT_EQ(who.run([&] { return NetCMGetStatInfo(counters); }), NETCM_SUCCESS);
    EXPECT_THAT(counters, ::testing::ElementsAre(1, 2, 3, 4, 5, 0xffffffff));
    EXPECT_TRUE(traced_in_order({{0, "Successfully retrieved Call statistics info\n"}}));
}

}  // namespace
}  // namespace quorvel::test
