#include "support/ClientTest.h"

namespace quorvel::test {
namespace {

using Registration = ClientTest;

TEST_F(Registration, a_null_callback_is_refused_without_a_lock) {
    trace::clear();
    EXPECT_EQ(user(0).run([] { return NetCMClientRegister(nullptr); }), NETCM_ERR_INVALID_PARAM);
    EXPECT_EQ(trace::find("Invalid callback function pointer\n").mask, trace::kCaller);
    EXPECT_EQ(calls::count(Call::MutexLock), 0u);
    EXPECT_EQ(g_NetCMClientAppInfo.ClientId, -1);
}

TEST_F(Registration, the_first_thread_sets_the_link_up) {
    registered(0);
    EXPECT_EQ(with_table([](const auto& t) { return t.RegCount; }), 1);
}

}  // namespace
}  // namespace quorvel::test
