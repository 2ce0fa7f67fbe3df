// A log that nobody reads stops nobody.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <memory>
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
        EXPECT_EQ(mkfifo(kPipe, 0600), 0);
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

TEST(UnreadLog, stops_nobody_and_says_later_what_it_has_lost) {
    Reader reader;
    Program server({"sh", "-c", std::string("exec " CM_SERVER_PATH " --db :memory: 2>") + kPipe});
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
