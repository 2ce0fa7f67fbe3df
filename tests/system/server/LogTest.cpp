// A log that nobody reads stops nobody.
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "server/RawClient.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

constexpr const char* kPipe = "/tmp/log";

// The end of a pipe that could be read from.
class Reader {
  public:
    Reader() {
        (void)mkfifo(kPipe, 0600);
        fd_ = open(kPipe, O_RDWR | O_CLOEXEC);
    }
    ~Reader() { close(fd_); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    // All lines up to the one with this text.
    std::string read_until(const std::string& text) {
        std::string all;
        std::string line;
        while (line.find(text) == std::string::npos) {
            line.clear();
            for (char byte = 0; byte != '\n'; line += byte)
                if (read(fd_, &byte, 1) != 1)
                    return all;
            all += line;
        }
        return all;
    }

  private:
    int fd_;
};

std::unique_ptr<RawClient> first_client() {
    while (true) {
        try {
            return std::make_unique<RawClient>();
        } catch (const NoServer&) {
            std::this_thread::yield();
        }
    }
}

// "2026-11-22T02", in UTC.
std::string hour_now() {
    const time_t now = time(nullptr);
    tm parts{};
    gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%FT%H", &parts);
    return text.data();
}

TEST(LogTime, is_utc_with_its_date_wherever_the_server_stands) {
    setenv("TZ", "EAST-9", 1);
    const std::string before = hour_now();
    CmServer server;
    const std::string log = server.stop().err;
    EXPECT_TRUE(log.starts_with(before) || log.starts_with(hour_now())) << log;
    EXPECT_EQ(log.substr(19, 1), ".");
    EXPECT_EQ(log.substr(23, 7), "Z info:");
}

// The server with its log there where the shell puts it.
Program server_with_log(const std::string& redirection) {
    return Program({"bash", "-c", redirection + "; exec '" CM_SERVER_PATH "' --db :memory:"});
}

void stop(Program& server) {
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait().status, 0);
}

TEST(ServerLog, may_be_a_file) {
    Program server = server_with_log("exec 2>/tmp/log.txt");
    first_client()->open(1);
    stop(server);
    std::ostringstream log;
    log << std::ifstream("/tmp/log.txt").rdbuf();
    EXPECT_NE(log.str().find("info: listening on"), std::string::npos);
    EXPECT_NE(log.str().find("info: ends on SIGTERM\n"), std::string::npos) << log.str();
}

TEST(ServerLog, may_be_a_socket) {
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    ASSERT_EQ(fcntl(ends[1], F_SETFD, 0), 0);
    constexpr int kSmall = 4096;
    ASSERT_EQ(setsockopt(ends[1], SOL_SOCKET, SO_SNDBUF, &kSmall, sizeof(kSmall)), 0);
    Program server = server_with_log("exec 2>&" + std::to_string(ends[1]));
    close(ends[1]);
    // Nobody reads for a while.
    const auto client = first_client();
    for (int i = 0; i < 4000; ++i)
        client->ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ);
    std::string log;
    std::array<char, 4096> piece;
    while (log.find("lines of this log could not be written") == std::string::npos) {
        const ssize_t got = read(ends[0], piece.data(), piece.size());
        ASSERT_GT(got, 0) << log;
        log.append(piece.data(), static_cast<size_t>(got));
    }
    EXPECT_NE(log.find("info: listening on"), std::string::npos);
    stop(server);
    close(ends[0]);
}

TEST(ServerLog, waits_for_who_reads_it) {
    ASSERT_EQ(mkfifo(kPipe, 0600), 0);
    // A pipe that nobody reads any more when the server starts.
    Program server = server_with_log(std::string("exec 3<>") + kPipe + " 2>" + kPipe + " 3>&-");
    EXPECT_EQ(first_client()->open(1), 0u);
    Reader reader;
    EXPECT_NE(reader.read_until(" is up on lo").find("listening on"), std::string::npos);
    stop(server);
}

// Nothing that the server opens takes the place of a stream that it has not been given.
TEST(ServerStreams, that_are_missing_lead_nowhere) {
    Program server({"sh", "-c", "exec '" CM_SERVER_PATH "' --db :memory: <&- >&- 2>&-"});
    EXPECT_EQ(first_client()->open(1), 0u);
    const std::string folder = "/proc/" + std::to_string(server.pid()) + "/fd/";
    for (const char* stream : {"0", "1", "2"})
        EXPECT_EQ(std::filesystem::read_symlink(folder + stream), "/dev/null") << stream;
    stop(server);
}

TEST(UnreadLog, stops_nobody_and_says_later_what_it_has_lost) {
    Reader reader;
    Program server({"sh", "-c", std::string("exec '" CM_SERVER_PATH "' --db :memory: 2>") + kPipe});
    const auto client = first_client();
    for (int i = 0; i < 8000; ++i)
        ASSERT_EQ(client->ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2, 1u);
    const std::string log = reader.read_until("lines of this log could not be written");
    EXPECT_NE(log.find("listening on"), std::string::npos);
    for (size_t begin = 0, end = 0; (end = log.find('\n', begin)) != std::string::npos; begin = end + 1)
        ASSERT_EQ(log.substr(begin + 23, 2), "Z ")
            << "a line that is not whole: " << log.substr(begin, end - begin);
    client->ask(wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ);
    EXPECT_NE(reader.read_until("asks for the available interfaces"), "");
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait().status, 0);
}

}  // namespace
}  // namespace quorvel::test
