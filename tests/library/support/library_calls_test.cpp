#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>

#include "quorvel/NetDebug.h"
#include "support/LibraryCalls.h"
#include "support/Stdout.h"

namespace quorvel::test {
namespace {

TEST(LibraryCalls, the_code_of_the_library_is_told_from_the_code_of_the_test) {
    EXPECT_TRUE(calls::is_library_code(reinterpret_cast<const void*>(&NetDebugPrint)));
    EXPECT_FALSE(calls::is_library_code(reinterpret_cast<const void*>(&calls::is_library_code)));
}

TEST(LibraryCalls, only_calls_of_the_library_are_counted) {
    free(malloc(10));
    EXPECT_EQ(calls::count(Call::Malloc), 0u);
    const size_t before = calls::count(Call::Format);
    stdout_of([] { NetDebugPrint("c", 1, "x"); });
    EXPECT_EQ(calls::count(Call::Format), before + 2);
    NetCloseLogfile();
}

TEST(LibraryCalls, the_nth_call_fails_and_no_other) {
    calls::fail(Call::Format, 2);
    EXPECT_EQ(stdout_of([] { NetDebugPrint("c", 1, "first"); }), "");
    EXPECT_TRUE(calls::has_failed(Call::Format));
    EXPECT_EQ(stdout_of([] { NetDebugPrint("c", 1, "second"); }), "[c][Ln:   1] second");
    NetCloseLogfile();
}

TEST(LibraryCalls, reset_ends_every_order) {
    calls::fail(Call::Format, 1, 0, calls::kForEver);
    calls::reset();
    EXPECT_EQ(stdout_of([] { NetDebugPrint("c", 1, "x"); }), "[c][Ln:   1] x");
    EXPECT_FALSE(calls::has_failed(Call::Format));
    NetCloseLogfile();
}

TEST(LibraryCalls, a_hook_runs_once_before_its_call) {
    size_t runs = 0;
    calls::before(Call::Format, [&] { ++runs; });
    stdout_of([] {
        NetDebugPrint("c", 1, "x");
        NetDebugPrint("c", 1, "x");
    });
    EXPECT_EQ(runs, 1u);
    NetCloseLogfile();
}

TEST(LogFileMemory, a_message_for_which_there_is_no_memory_is_not_printed) {
    for (const size_t nth : {1u, 2u}) {
        calls::fail(Call::Format, nth);
        EXPECT_EQ(stdout_of([] { NetDebugPrint("c", 1, "x"); }), "");
        EXPECT_EQ(logfile, nullptr);
    }
}

}  // namespace
}  // namespace quorvel::test
