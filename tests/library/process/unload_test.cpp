// A process that loads the library, and unloads it while it is in use.
#include <gtest/gtest.h>

#include "support/Program.h"
#include "support/ScriptedServer.h"

namespace quorvel::test {
namespace {

constexpr char kLeft[] = "registered 0\nasked 0\nderegistered 0\nunloaded 0\nforked 0\n";
constexpr char kStayed[] = "registered 0\nasked 0\nunloaded 0\nforked 0\n";

class UnloadedLibrary : public ::testing::Test {
  protected:
    ScriptedServer server;
};

TEST_F(UnloadedLibrary, leaves_a_process_that_has_deregistered_in_peace) {
    const Ended ended = run({UNLOAD_PROBE, QUORVEL_LIBRARY, "leave"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.out, std::string().append(kLeft).append(kLeft).append("alive\n")) << ended.err;
}

TEST_F(UnloadedLibrary, still_delivers_events_to_a_process_that_has_not) {
    Program probe({UNLOAD_PROBE, QUORVEL_LIBRARY, "stay"});
    probe.wait_for_out("forked 0\n");
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    const Ended ended = probe.wait();
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.out, kStayed + ("event " + std::to_string(NETCM_EVENT_NETWORK_STATUS_IND) + "\nalive\n"))
        << ended.err;
}

}  // namespace
}  // namespace quorvel::test
