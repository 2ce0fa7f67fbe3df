// The runner itself: what every other test takes for granted.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "appmgr_ids.h"
#include "common/Trace.h"
#include "evtsys.h"
#include "support/LeakCheck.h"
#include "support/Platform.h"
#include "support/TraceCapture.h"

namespace quorvel::test {
namespace {

TEST(Runner, tmp_holds_nothing_of_the_machine) {
    for (const auto& entry : std::filesystem::directory_iterator("/tmp"))
        EXPECT_TRUE(entry.is_directory()) << entry.path();
    EXPECT_NE(access("/tmp/psServSocket", F_OK), 0);
}

TEST(Runner, tmp_is_writable_for_everybody) {
    struct stat info {};
    ASSERT_EQ(stat("/tmp", &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 01777u);
}

TEST(Runner, the_loopback_device_is_the_only_one_and_is_up) {
    ifaddrs* list = nullptr;
    ASSERT_EQ(getifaddrs(&list), 0);
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        EXPECT_STREQ(entry->ifa_name, "lo");
        EXPECT_NE(entry->ifa_flags & IFF_UP, 0u);
    }
    freeifaddrs(list);
}

TEST(Runner, the_test_may_use_any_port) {
    EXPECT_EQ(geteuid(), 0u);
}

TEST(LeakCheck, a_descriptor_that_is_left_open_is_named) {
    const Descriptors before = open_descriptors();
    EXPECT_EQ(leaked(before, open_descriptors()), "");
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(leaked(before, open_descriptors()), std::to_string(fd) + " -> /dev/null\n");
    close(fd);
    EXPECT_EQ(leaked(before, open_descriptors()), "");
}

TEST(LeakCheck, a_number_that_means_something_else_counts_as_left_open) {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const Descriptors before = open_descriptors();
    const int other = open("/dev/zero", O_RDONLY | O_CLOEXEC);
    dup2(other, fd);
    close(other);
    EXPECT_EQ(leaked(before, open_descriptors()), std::to_string(fd) + " -> /dev/zero\n");
    close(fd);
}

TEST(LeakCheck, a_test_that_leaves_a_descriptor_fails) {
    static LeakCheck check;
    static const ::testing::TestInfo& info = *::testing::UnitTest::GetInstance()->current_test_info();
    check.OnTestStart(info);
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_NONFATAL_FAILURE(check.OnTestEnd(info), "the test left descriptors open");
    close(fd);
    check.OnTestEnd(info);
}

TEST(LeakCheck, a_thread_that_is_still_ending_is_waited_for) {
    LeakCheck check;
    const ::testing::TestInfo& info = *::testing::UnitTest::GetInstance()->current_test_info();
    check.OnTestStart(info);
    std::thread([] { std::this_thread::sleep_for(std::chrono::milliseconds(30)); }).detach();
    check.OnTestEnd(info);
}

TEST(LeakCheckSlow, a_test_that_leaves_a_thread_fails) {
    static LeakCheck check;
    static const ::testing::TestInfo& info = *::testing::UnitTest::GetInstance()->current_test_info();
    check.OnTestStart(info);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    std::thread blocked([fd = ends[0]] {
        char byte = 0;
        EXPECT_EQ(read(fd, &byte, 1), 0);
    });
    ::testing::TestPartResultArray failures;
    {
        const ::testing::ScopedFakeTestPartResultReporter reporter(
            ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
        check.OnTestEnd(info);
    }
    close(ends[1]);
    blocked.join();
    close(ends[0]);
    EXPECT_GE(failures.size(), 1);
    EXPECT_THAT(failures.GetTestPartResult(0).message(), ::testing::HasSubstr("left a thread behind"));
}

TEST(TraceCapture, a_line_is_kept_with_all_that_was_said_about_it) {
    _debug_message(12, "some/unit", 0x5000100, 0x1000000, "%s %d\n", "text", 5);
    const TraceLine line = trace::find("text 5\n");
    EXPECT_EQ(line.line, 12);
    EXPECT_EQ(line.file, "some/unit");
    EXPECT_EQ(line.mid, 0x5000100u);
    EXPECT_EQ(line.mask, trace::kCaller);
    EXPECT_EQ(line.thread, getpid());
}

TEST(TraceCapture, order_is_told_apart) {
    for (const char* text : {"one", "two", "three"})
        _debug_message(1, "unit", 0, 0, "%s", text);
    EXPECT_TRUE(trace::contains_in_order({"one", "three"}));
    EXPECT_FALSE(trace::contains_in_order({"three", "one"}));
    EXPECT_FALSE(trace::contains_in_order({"one", "one"}));
}

TEST(TraceCapture, clear_forgets) {
    _debug_message(1, "unit", 0, 0, "one");
    trace::clear();
    EXPECT_FALSE(trace::contains("one"));
    EXPECT_TRUE(trace::find("one").file.empty());
}

TEST(TraceCapture, a_line_of_another_thread_ends_a_wait) {
    std::thread other([] {
        _debug_message(1, "unit", 0, 0, "twice");
        _debug_message(1, "unit", 0, 0, "twice");
    });
    EXPECT_TRUE(trace::wait_for("twice", 2));
    EXPECT_TRUE(trace::wait_for_prefix("tw"));
    other.join();
    EXPECT_FALSE(trace::wait_for("twice", 3, std::chrono::milliseconds(1)));
}

TEST(Platform, the_id_of_the_application_is_what_the_test_sets) {
    int id = -1;
    int error = -1;
    platform::set_app_id(42);
    EXPECT_NE(app_get_current_id(&id, &error), 0);
    EXPECT_EQ(id, 42);
    platform::fail_app_id(9);
    EXPECT_EQ(app_get_current_id(&id, &error), 0);
    EXPECT_EQ(error, 9);
}

TEST(Platform, the_event_system_answers_as_it_was_told_and_keeps_its_calls) {
    platform::set_event_handle_exists(false);
    platform::set_event_library_open_result(3);
    platform::set_event_publish_result(4);
    void* handle = nullptr;
    EXPECT_EQ(EvtSysEventHandleExist(nullptr), 0);
    EXPECT_EQ(EvtSysLibraryOpen(&handle), 3);
    EXPECT_EQ(EvtSysEventPublish(nullptr, "an event"), 4);
    EXPECT_EQ(platform::event_system_calls().size(), 3u);
    EXPECT_EQ(platform::published("an event"), 1u);
    EXPECT_EQ(platform::published("another"), 0u);
}

}  // namespace
}  // namespace quorvel::test
