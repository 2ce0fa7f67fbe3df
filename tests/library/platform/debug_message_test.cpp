#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "support/Program.h"

namespace quorvel::test {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

const std::string kHead = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}Z [0-9]+/[0-9]+ ";
constexpr char kErrno[] = " 34\n";  // ERANGE, as the probe has set it before

Ended probe(std::vector<std::string> environment, const std::vector<std::string>& arguments) {
    std::vector<std::string> command{"env", "-u", "QUORVEL_TRACE", "-u", "QUORVEL_TRACE_FILE"};
    command.insert(command.end(), environment.begin(), environment.end());
    command.push_back(TRACE_PROBE);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run(command);
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::string content(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(DebugMessage, nothing_is_traced_when_nobody_asks) {
    const Ended ended = probe({}, {"levels"});
    EXPECT_EQ(ended.out, "0 0 0 0\n");
    EXPECT_EQ(ended.err, "");
}

TEST(DebugMessage, off_and_an_empty_value_are_silent_too) {
    EXPECT_EQ(probe({"QUORVEL_TRACE=off"}, {"levels"}).err, "");
    EXPECT_EQ(probe({"QUORVEL_TRACE="}, {"levels"}).err, "");
}

TEST(DebugMessage, a_filtered_message_is_not_formatted_and_keeps_errno) {
    const Ended ended = probe({}, {"unformattable"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, std::string("0") + kErrno);
}

TEST(DebugMessage, each_setting_adds_a_level) {
    const Ended error = probe({"QUORVEL_TRACE=error"}, {"levels"});
    EXPECT_EQ(error.out, "1 0 0 0\n");
    EXPECT_EQ(lines_of(error.err).size(), 1u);

    const Ended resource = probe({"QUORVEL_TRACE=resource"}, {"levels"});
    EXPECT_EQ(resource.out, "1 1 0 0\n");
    EXPECT_EQ(lines_of(resource.err).size(), 2u);

    const Ended all = probe({"QUORVEL_TRACE=all"}, {"levels"});
    EXPECT_EQ(all.out, "1 1 1 0\n");
    EXPECT_EQ(lines_of(all.err).size(), 3u);
}

TEST(DebugMessage, a_line_tells_time_thread_level_place_and_text) {
    const Ended ended = probe({"QUORVEL_TRACE=all"}, {"levels"});
    const std::vector<std::string> lines = lines_of(ended.err);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_THAT(lines[0], MatchesRegex(kHead + R"(error unit/a:71 Invalid socket FD \[-1\])"));
    EXPECT_THAT(lines[1], MatchesRegex(kHead + "resource unit/b:72 PANIC!!! Memory not allocated"));
    EXPECT_THAT(lines[2], MatchesRegex(kHead + "trace unit/c:73 POLLIN"));

    int process = 0;
    int thread = 0;
    ASSERT_EQ(sscanf(lines[0].c_str(), "%*s %d/%d", &process, &thread), 2);
    EXPECT_EQ(process, thread) << "the main thread has the process id";
}

TEST(DebugMessage, the_time_is_the_present_in_utc) {
    const Ended ended = probe({"TZ=Asia/Seoul", "QUORVEL_TRACE=error"}, {"levels"});
    std::tm time{};
    ASSERT_NE(strptime(ended.err.c_str(), "%Y-%m-%dT%H:%M:%S", &time), nullptr) << ended.err;
    EXPECT_NEAR(static_cast<double>(timegm(&time)), static_cast<double>(std::time(nullptr)), 60);
}

TEST(DebugMessage, a_message_stays_on_one_line) {
    const Ended ended = probe({"QUORVEL_TRACE=error"}, {"text", "one\ntwo\r\x1b[31m three \n\n"});
    ASSERT_EQ(lines_of(ended.err).size(), 1u);
    EXPECT_THAT(ended.err, HasSubstr("unit/a:1 one two  [31m three\n"));
}

TEST(DebugMessage, text_in_utf_8_passes) {
    EXPECT_THAT(probe({"QUORVEL_TRACE=error"}, {"text", "이름 é"}).err, HasSubstr(" 이름 é\n"));
}

TEST(DebugMessage, a_long_line_is_cut) {
    const Ended ended = probe({"QUORVEL_TRACE=error"}, {"text", std::string(5000, 'x')});
    EXPECT_EQ(ended.err.size(), 1024u);
    EXPECT_EQ(ended.err.back(), '\n');
}

TEST(DebugMessage, a_file_is_created_for_its_owner_and_appended_to) {
    const std::vector<std::string> environment{"QUORVEL_TRACE=error", "QUORVEL_TRACE_FILE=/tmp/trace"};
    EXPECT_EQ(probe(environment, {"levels"}).err, "");
    probe(environment, {"text", "second"});
    const std::vector<std::string> lines = lines_of(content("/tmp/trace"));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_THAT(lines[0], HasSubstr("unit/a:71"));
    EXPECT_THAT(lines[1], HasSubstr("second"));
    struct stat status {};
    ASSERT_EQ(stat("/tmp/trace", &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST(DebugMessage, a_file_that_cannot_be_written_is_replaced_by_standard_error) {
    const Ended ended = probe({"QUORVEL_TRACE=error", "QUORVEL_TRACE_FILE=/tmp/no/such/folder"}, {"levels"});
    EXPECT_EQ(ended.out, "1 0 0 0\n");
    EXPECT_THAT(ended.err, HasSubstr("unit/a:71"));
}

TEST(DebugMessage, a_path_that_is_too_long_is_replaced_too) {
    const Ended ended =
        probe({"QUORVEL_TRACE=error", "QUORVEL_TRACE_FILE=/" + std::string(5000, 'x')}, {"levels"});
    EXPECT_THAT(ended.err, HasSubstr("unit/a:71"));
}

TEST(DebugMessage, a_pipe_without_a_reader_takes_the_place_of_a_file_without_waiting) {
    ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
    const Ended ended = probe({"QUORVEL_TRACE=error", "QUORVEL_TRACE_FILE=/tmp/fifo"}, {"levels"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.err, HasSubstr("unit/a:71"));
}

TEST(DebugMessage, an_unknown_setting_is_reported_and_nothing_is_traced) {
    const Ended ended = probe({"QUORVEL_TRACE=verbose"}, {"levels"});
    EXPECT_EQ(ended.out, "0 0 0 0\n");
    EXPECT_EQ(ended.err, "QUORVEL_TRACE=verbose: not one of off, error, resource, all; nothing is traced\n");
}

TEST(DebugMessage, a_reader_that_is_gone_raises_no_signal) {
    const Ended ended = probe({"QUORVEL_TRACE=error"}, {"to-nobody"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, std::string("-1") + kErrno);
}

TEST(DebugMessage, lines_of_threads_and_processes_do_not_mix) {
    const std::vector<std::string> command{"env", "QUORVEL_TRACE=error", "QUORVEL_TRACE_FILE=/tmp/trace",
                                           TRACE_PROBE, "threads"};
    Program first(command);
    Program second(command);
    EXPECT_EQ(first.wait().status, 0);
    EXPECT_EQ(second.wait().status, 0);

    const std::vector<std::string> lines = lines_of(content("/tmp/trace"));
    EXPECT_EQ(lines.size(), 2u * 8 * 200);
    for (const std::string& line : lines)
        ASSERT_THAT(line, MatchesRegex(kHead + "error unit/thread:[0-9]+ thread [0-7] line [0-9]+ end"));
}

}  // namespace
}  // namespace quorvel::test
