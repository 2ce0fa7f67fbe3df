// Variables of the application's that have the names of the library's.
#include <gtest/gtest.h>

#include "support/CmServer.h"

namespace quorvel::test {
namespace {

TEST(OwnNames, of_an_application_are_left_alone) {
    CmServer server;
    const Ended probe = run({OWN_NAMES_PROBE});
    EXPECT_EQ(probe.status, 0) << probe.out << probe.err;
    EXPECT_NE(probe.out.find("a line\n"), std::string::npos) << probe.out;
}

}  // namespace
}  // namespace quorvel::test
