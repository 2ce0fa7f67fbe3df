#include <gtest/gtest.h>

#include "quorvel/NetCM.h"
#include "support/Platform.h"
#include "support/TraceCapture.h"

namespace quorvel::test {
namespace {

constexpr char kUnit[] = "data-networking/client/CM/src/NetCMClientAppMgrIntf";

TEST(AppId, the_platforms_id_is_handed_out) {
    platform::set_app_id(-7);
    int32_t id = 42;
    EXPECT_EQ(NetCMClientGetAppId(&id), 1);
    EXPECT_EQ(id, -7);

    const TraceLine line = trace::find("Application ID = -7\n");
    EXPECT_EQ(line.file, kUnit);
    EXPECT_EQ(line.mask, trace::kNormal);
    EXPECT_EQ(line.mid, 0x5000100u);
    EXPECT_EQ(trace::lines().size(), 1u);
}

TEST(AppId, without_one_the_caller_keeps_his_value_and_the_error_is_traced) {
    platform::fail_app_id(-12);
    int32_t id = 42;
    EXPECT_EQ(NetCMClientGetAppId(&id), 0);
    EXPECT_EQ(id, 42);

    const TraceLine line = trace::find("Getting application ID failed. Error code = -12\n");
    EXPECT_EQ(line.file, kUnit);
    EXPECT_EQ(line.mask, trace::kNormal);
    EXPECT_EQ(trace::lines().size(), 1u);
}

}  // namespace
}  // namespace quorvel::test
