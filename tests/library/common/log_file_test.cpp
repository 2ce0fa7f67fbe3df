#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <future>
#include <iterator>
#include <thread>
#include <vector>

#include "library/common/Cancellable.h"
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

// A file of the application's, and whether it is still open.
class OwnLog {
  public:
    explicit OwnLog(const char* path = "/tmp/own.log") : path_(path), file_(fopen(path, "w+")) {}
    ~OwnLog() {
        fclose(file_);
        unlink(path_);
    }
    OwnLog(const OwnLog&) = delete;
    OwnLog& operator=(const OwnLog&) = delete;

    FILE* file() const { return file_; }
    bool is_open() const { return fcntl(fileno(file_), F_GETFD) >= 0 && fputs("still open", file_) >= 0; }
    std::string text() const {
        fflush(file_);
        std::ifstream file(path_);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    const char* path_;
    FILE* file_;
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

TEST_F(LogFile, a_file_of_the_application_is_written_to_and_never_closed) {
    OwnLog mine;
    logfile = mine.file();
    stdout_of([] { NetDebugPrint("c", 1, "line\n"); });
    EXPECT_EQ(mine.text(), "[c][Ln:   1] line\n");
    EXPECT_EQ(NetCleanLogfile(), 0);
    EXPECT_TRUE(mine.is_open());
    EXPECT_NE(logfile, mine.file());
    EXPECT_EQ(contents(), zero_and(""));
}

TEST_F(LogFile, no_file_of_the_application_has_the_address_of_a_closed_log) {
    NetCleanLogfile();
    FILE* const closed = logfile;
    NetCloseLogfile();
    OwnLog mine;
    EXPECT_NE(mine.file(), closed);
    logfile = mine.file();
    stdout_of([] { NetDebugPrint("c", 1, "line\n"); });
    EXPECT_EQ(mine.text(), "[c][Ln:   1] line\n");
    EXPECT_EQ(NetCleanLogfile(), 0);
    EXPECT_TRUE(mine.is_open());
}

TEST_F(LogFile, a_file_at_the_address_of_a_log_that_the_application_has_closed_is_not_closed) {
    NetCleanLogfile();
    fclose(logfile);
    OwnLog mine;  // in the same place, descriptor included, where the allocator has no other mind
    logfile = mine.file();
    stdout_of([] { NetDebugPrint("c", 1, "line\n"); });
    EXPECT_EQ(mine.text(), "[c][Ln:   1] line\n");
    EXPECT_EQ(NetCleanLogfile(), 0);
    EXPECT_TRUE(mine.is_open());
}

TEST_F(LogFile, a_file_of_the_application_is_closed_where_it_says_so) {
    FILE* const mine = fopen("/tmp/own.log", "w+");
    const int fd = fileno(mine);
    logfile = mine;
    EXPECT_EQ(NetCloseLogfile(), 0);
    EXPECT_EQ(logfile, mine);
    EXPECT_LT(fcntl(fd, F_GETFD), 0);
    EXPECT_EQ(NetCloseLogfile(), 0) << "there is nothing left to close";
    OwnLog next;
    logfile = next.file();
    stdout_of([] { NetDebugPrint("c", 1, "line\n"); });
    EXPECT_EQ(next.text(), "[c][Ln:   1] line\n");
    logfile = nullptr;
}

TEST_F(LogFile, a_stream_without_a_descriptor_is_as_good) {
    char* text = nullptr;
    size_t length = 0;
    FILE* const mine = open_memstream(&text, &length);
    logfile = mine;
    stdout_of([] { NetDebugPrint("c", 1, "line\n"); });
    EXPECT_EQ(NetCleanLogfile(), 0);
    EXPECT_EQ(fclose(mine), 0);
    EXPECT_STREQ(text, "[c][Ln:   1] line\n");
    free(text);

    NetCloseLogfile();
    logfile = open_memstream(&text, &length);
    stdout_of([] { NetDebugPrint("c", 2, "line\n"); });
    EXPECT_EQ(NetCloseLogfile(), 0);
    EXPECT_STREQ(text, "[c][Ln:   2] line\n");
    free(text);
    EXPECT_EQ(NetCloseLogfile(), 0);
}

TEST_F(LogFile, a_close_that_cannot_write_what_is_left_says_so) {
    logfile = fopen("/dev/full", "w");
    ASSERT_NE(logfile, nullptr);
    stdout_of([] { NetDebugPrint("c", 1, "line\n"); });
    EXPECT_EQ(NetCloseLogfile(), EOF);
}

void expect_no_log_file() {
    int result = 0;
    EXPECT_EQ(stdout_of([&] { result = NetCleanLogfile(); }), "Error opening log file\n");
    EXPECT_GT(result, 0);
    EXPECT_EQ(logfile, nullptr);
    EXPECT_EQ(stdout_of([] { NetDebugPrint("c", 1, "line\n"); }),
              "[c][Ln:   1] line\nError opening log file\n");
    EXPECT_EQ(logfile, nullptr);
    unlink(kPath);
}

// Everybody may put a link into /tmp.
TEST_F(LogFile, a_link_is_not_followed) {
    std::ofstream("/tmp/victim") << "precious";
    ASSERT_EQ(symlink("/tmp/victim", kPath), 0);
    expect_no_log_file();
    std::ifstream victim("/tmp/victim");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(victim), {}), "precious");
    ASSERT_EQ(symlink("/tmp/new", kPath), 0);
    expect_no_log_file();
    EXPECT_NE(access("/tmp/new", F_OK), 0);
}

TEST_F(LogFile, a_pipe_in_its_place_is_not_opened_and_not_waited_for) {
    ASSERT_EQ(mkfifo(kPath, 0666), 0);
    expect_no_log_file();
}

TEST_F(LogFile, threads_may_print_clean_and_close_at_once) {
    stdout_of([] {
        std::vector<std::thread> threads;
        for (int n = 0; n < 4; ++n)
            threads.emplace_back([n] {
                for (int turn = 0; turn < 500; ++turn) {
                    NetDebugPrint("c", n, "line\n");
                    if (turn % 5 == n)
                        NetCleanLogfile();
                    if (turn % 7 == n)
                        NetCloseLogfile();
                }
            });
        for (std::thread& thread : threads)
            thread.join();
    });
    EXPECT_EQ(NetCleanLogfile(), 0);
    stdout_of([] { NetDebugPrint("c", 1, "the last\n"); });
    fflush(logfile);
    EXPECT_EQ(contents(), zero_and("[c][Ln:   1] the last\n"));
}

// A stream whose writes wait for a byte of a pipe, which is a place where threads are cancelled.
class SlowLog {
  public:
    SlowLog() {
        EXPECT_EQ(pipe2(fds_, O_CLOEXEC), 0);
        cookie_io_functions_t functions{};
        functions.write = [](void* slow, const char*, size_t size) {
            static_cast<SlowLog*>(slow)->write();
            return static_cast<ssize_t>(size);
        };
        file_ = fopencookie(this, "w", functions);
        setvbuf(file_, nullptr, _IONBF, 0);
    }
    ~SlowLog() {
        fclose(file_);
        close(fds_[0]);
        close(fds_[1]);
    }
    SlowLog(const SlowLog&) = delete;
    SlowLog& operator=(const SlowLog&) = delete;

    FILE* file() const { return file_; }
    void wait_for_writer() { entered_.get_future().wait(); }
    void let_pass() { EXPECT_EQ(::write(fds_[1], "x", 1), 1); }

  private:
    void write() {
        char byte = 0;
        if (is_first_.exchange(false))
            entered_.set_value();
        else
            return;
        EXPECT_EQ(read(fds_[0], &byte, 1), 1);
    }

    int fds_[2] = {-1, -1};
    FILE* file_ = nullptr;
    std::atomic<bool> is_first_{true};
    std::promise<void> entered_;
};

TEST_F(LogFile, a_thread_that_is_cancelled_while_it_prints_ends_behind_the_call) {
    SlowLog slow;
    logfile = slow.file();
    stdout_of([&] {
        Cancellable thread([] { NetDebugPrint("c", 1, "line\n"); });
        slow.wait_for_writer();
        thread.cancel();
        slow.let_pass();
        EXPECT_TRUE(thread.ended_behind_the_body());
    });
    stdout_of([] { NetDebugPrint("c", 2, "the next one has the lock\n"); });
    logfile = nullptr;
}

}  // namespace
}  // namespace quorvel::test
