// An application outlives its server.
#include <gtest/gtest.h>

#include "quorvel/NetCM.h"
#include "support/AppThread.h"
#include "support/CmServer.h"
#include "support/Events.h"
#include "support/Eventually.h"
#include "support/LibraryCalls.h"
#include "support/Link.h"

namespace quorvel::test {
namespace {

constexpr int32_t kProfile = 1;

uint32_t open() {
    return NetCMConnectionOpen(&kProfile, 1);
}

TEST(ServerRestart, ends_calls_and_the_next_request_finds_the_new_server) {
    AppThread application;
    auto server = std::make_unique<CmServer>();
    ASSERT_EQ(application.run([] { return NetCMClientRegister(events::callback_of(0)); }), NETCM_SUCCESS);
    ASSERT_EQ(application.run(open), NETCM_SUCCESS);
    ASSERT_TRUE(events::wait_for(1));
    EXPECT_EQ(events::all().back().type, NETCM_EVENT_OPEN_RSP);

    server.reset();
    ASSERT_TRUE(events::wait_for(2));
    EXPECT_EQ(events::all().back().type, NETCM_EVENT_STOP_IND);
    EXPECT_EQ(events::all().back().result, 2);
    ASSERT_TRUE(eventually(link_is_broken));

    server = std::make_unique<CmServer>();
    uint32_t status = 0;
    EXPECT_EQ(application.run([&] { return NetCMGetNetworkStatus(1, &status); }), NETCM_SUCCESS);
    EXPECT_EQ(application.run(open), NETCM_SUCCESS);
    ASSERT_TRUE(events::wait_for(3));
    EXPECT_EQ(events::all().back().type, NETCM_EVENT_OPEN_RSP);

    EXPECT_EQ(application.run([] { return NetCMConnectionClose(kProfile); }), NETCM_SUCCESS);
    ASSERT_TRUE(events::wait_for(4));
    EXPECT_EQ(events::all().back().type, NETCM_EVENT_CLOSE_RSP);
    EXPECT_EQ(application.run([] { return NetCMClientDeRegister(); }), NETCM_SUCCESS);
}

TEST(ServerRestart, without_a_new_server_a_request_fails_with_2) {
    AppThread application;
    auto server = std::make_unique<CmServer>();
    ASSERT_EQ(application.run([] { return NetCMClientRegister(events::callback_of(0)); }), NETCM_SUCCESS);
    server.reset();
    ASSERT_TRUE(eventually(link_is_broken));
    calls::skip_sleeps();
    EXPECT_EQ(application.run(open), NETCM_ERR_REREGISTER_FAILED);
    EXPECT_EQ(application.run([] { return NetCMClientDeRegister(); }), NETCM_SUCCESS);
}

}  // namespace
}  // namespace quorvel::test
