#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include "quorvel/NetDebug.h"
#include "support/Stdout.h"

namespace quorvel::test {
namespace {

constexpr char kPath[] = "/tmp/dnetlog";

std::string contents() {
    std::ifstream file(kPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string zero_and(const std::string& text) {
    return std::string(1, '\0') + text;
}

class LogFile : public ::testing::Test {
  protected:
    void TearDown() override {
        NetCloseLogfile();
        rmdir(kPath);
    }
};

TEST_F(LogFile, no_file_is_open_at_load) {
    EXPECT_EQ(logfile, nullptr);
    EXPECT_NE(access(kPath, F_OK), 0);
}

TEST_F(LogFile, a_line_names_the_base_name_and_the_line_in_four_columns) {
    EXPECT_EQ(stdout_of([] { NetDebugPrint("a/b/c", 7, "x"); }), "[c][Ln:   7] x");
}

TEST_F(LogFile, a_path_without_a_slash_is_printed_whole) {
    EXPECT_EQ(stdout_of([] { NetDebugPrint("main.c", 12345, "%d and %s\n", 1, "two"); }),
              "[main.c][Ln:12345] 1 and two\n");
}

TEST_F(LogFile, the_line_that_opens_the_file_is_not_written_to_it) {
    stdout_of([] { NetDebugPrint("a/b/c", 7, "first\n"); });
    ASSERT_NE(logfile, nullptr);
    fflush(logfile);
    EXPECT_EQ(contents(), "");

    stdout_of([] { NetDebugPrint("a/b/c", 8, "second\n"); });
    fflush(logfile);
    EXPECT_EQ(contents(), "[c][Ln:   8] second\n");
}

TEST_F(LogFile, a_file_that_exists_is_appended_to) {
    std::ofstream(kPath) << "before\n";
    stdout_of([] {
        NetDebugPrint("c", 1, "first\n");
        NetDebugPrint("c", 2, "second\n");
    });
    fflush(logfile);
    EXPECT_EQ(contents(), "before\n[c][Ln:   2] second\n");
}

TEST_F(LogFile, a_file_that_cannot_be_opened_is_reported_behind_the_line) {
    ASSERT_EQ(mkdir(kPath, 0755), 0);
    EXPECT_EQ(stdout_of([] { NetDebugPrint("c", 1, "line\n"); }),
              "[c][Ln:   1] line\nError opening log file\n");
    EXPECT_EQ(logfile, nullptr);
}

TEST_F(LogFile, cleaning_leaves_one_zero_byte_and_an_open_file) {
    std::ofstream(kPath) << "before\n";
    EXPECT_EQ(NetCleanLogfile(), 0);
    EXPECT_EQ(contents(), zero_and(""));
    ASSERT_NE(logfile, nullptr);
}

TEST_F(LogFile, after_cleaning_every_line_is_appended) {
    NetCleanLogfile();
    stdout_of([] { NetDebugPrint("c", 1, "first\n"); });
    fflush(logfile);
    EXPECT_EQ(contents(), zero_and("[c][Ln:   1] first\n"));
}

TEST_F(LogFile, cleaning_a_file_that_cannot_be_opened_gives_the_result_of_puts) {
    ASSERT_EQ(mkdir(kPath, 0755), 0);
    int result = 0;
    EXPECT_EQ(stdout_of([&] { result = NetCleanLogfile(); }), "Error opening log file\n");
    EXPECT_GT(result, 0);
    EXPECT_EQ(logfile, nullptr);
}

TEST_F(LogFile, closing_without_a_file_gives_0) {
    EXPECT_EQ(NetCloseLogfile(), 0);
}

TEST_F(LogFile, closing_leaves_the_handle_as_it_was) {
    NetCleanLogfile();
    FILE* const handle = logfile;
    EXPECT_EQ(NetCloseLogfile(), 0);
    EXPECT_EQ(logfile, handle);
}

TEST_F(LogFile, a_second_close_does_nothing) {
    NetCleanLogfile();
    EXPECT_EQ(NetCloseLogfile(), 0);
    EXPECT_EQ(NetCloseLogfile(), 0);
}

TEST_F(LogFile, cleaning_after_a_close_opens_the_file_again) {
    NetCleanLogfile();
    NetCloseLogfile();
    NetCleanLogfile();
    stdout_of([] { NetDebugPrint("c", 3, "again\n"); });
    fflush(logfile);
    EXPECT_EQ(contents(), zero_and("[c][Ln:   3] again\n"));
}

TEST_F(LogFile, the_open_file_is_not_handed_to_other_programs) {
    NetCleanLogfile();
    EXPECT_NE(fcntl(fileno(logfile), F_GETFD) & FD_CLOEXEC, 0);
}

// A descriptor of a standard stream would get every line twice.
TEST_F(LogFile, the_file_never_takes_the_place_of_a_closed_standard_stream) {
    const int standard_input = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    close(STDIN_FILENO);
    NetCleanLogfile();
    EXPECT_GT(fileno(logfile), 2);
    dup2(standard_input, STDIN_FILENO);
    close(standard_input);
}

TEST_F(LogFile, a_long_message_is_printed_whole) {
    const std::string message(10000, 'm');
    EXPECT_EQ(stdout_of([&] { NetDebugPrint("c", 1, "%s", message.c_str()); }), "[c][Ln:   1] " + message);
}

}  // namespace
}  // namespace quorvel::test
