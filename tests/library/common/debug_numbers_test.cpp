#include <gtest/gtest.h>

#include "common/Trace.h"
#include "quorvel/NetDebug.h"
#include "support/Stdout.h"

namespace quorvel::test {
namespace {

TEST(TraceNumbers, the_module_is_handed_through_whatever_the_level) {
    for (const uint32_t level : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 0xffffffffu})
        EXPECT_EQ(GenerateMidInfo(0x5000100, level), 0x5000100u);
    EXPECT_EQ(GenerateMidInfo(0, 3), 0u);
}

TEST(TraceNumbers, levels_up_to_3_share_one_mask) {
    for (const uint32_t level : {0u, 1u, 2u, 3u})
        EXPECT_EQ(GenerateLevelInfo(level), 0x4000000u) << level;
}

TEST(TraceNumbers, levels_4_and_5_have_masks_of_their_own) {
    EXPECT_EQ(GenerateLevelInfo(4), 0x2000000u);
    EXPECT_EQ(GenerateLevelInfo(5), 0x1000000u);
}

TEST(TraceNumbers, a_known_level_prints_nothing) {
    EXPECT_EQ(stdout_of([] {
                  for (uint32_t level = 0; level <= 5; ++level)
                      GenerateLevelInfo(level);
              }),
              "");
}

TEST(TraceNumbers, an_unknown_level_is_reported_on_standard_output_and_gives_0) {
    for (const uint32_t level : {6u, 0xffffffffu}) {
        uint32_t mask = 1;
        EXPECT_EQ(stdout_of([&] { mask = GenerateLevelInfo(level); }),
                  "Unknown debug level... never come here\n");
        EXPECT_EQ(mask, 0u);
    }
}

TEST(TraceNumbers, what_the_library_computes_for_itself_is_what_it_exports) {
    for (uint32_t level = 0; level <= 5; ++level)
        EXPECT_EQ(level_mask(level), GenerateLevelInfo(level)) << level;
}

}  // namespace
}  // namespace quorvel::test
