#include "evtsys.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace quorvel::test {
namespace {

using ::testing::MatchesRegex;

constexpr char kEvent[] = "Sync.Noti.CMServer";

auto is_line_of_this_process(const std::string& event) {
    return MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}Z " +
                        std::to_string(getpid()) + " " + event + "\n");
}

std::string content(const char* path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

class Watcher {
  public:
    explicit Watcher(const char* path) : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, path);
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~Watcher() { close(fd_); }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    // The next datagram, or nothing when there is none.
    std::string next() const {
        char buffer[2048];
        const ssize_t length = recv(fd_, buffer, sizeof buffer, 0);
        return length < 0 ? "" : std::string(buffer, static_cast<size_t>(length));
    }

  private:
    int fd_;
};

class EventSystem : public ::testing::Test {
  protected:
    void SetUp() override { unsetenv("QUORVEL_EVENTS"); }

    static int publish(const char* watcher, const char* event = kEvent) {
        setenv("QUORVEL_EVENTS", watcher, 1);
        errno = ERANGE;
        const int result = EvtSysEventPublish(nullptr, event);
        EXPECT_EQ(errno, ERANGE) << "publishing keeps errno";
        return result;
    }
};

TEST_F(EventSystem, without_a_watcher_an_event_has_been_published) {
    EXPECT_EQ(EvtSysEventPublish(nullptr, kEvent), 0);
    EXPECT_EQ(publish(""), 0);
}

TEST_F(EventSystem, a_file_collects_the_events) {
    EXPECT_EQ(publish("/tmp/events"), 0);
    EXPECT_THAT(content("/tmp/events"), is_line_of_this_process(kEvent));
    EXPECT_EQ(publish("/tmp/events", "Another.Event"), 0);
    const std::string both = content("/tmp/events");
    EXPECT_THAT(both.substr(both.find('\n') + 1), is_line_of_this_process("Another.Event"));
    struct stat status {};
    ASSERT_EQ(stat("/tmp/events", &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(EventSystem, a_datagram_socket_gets_each_event) {
    const Watcher watcher("/tmp/watcher");
    EXPECT_EQ(publish("/tmp/watcher"), 0);
    EXPECT_THAT(watcher.next(), is_line_of_this_process(kEvent));
    EXPECT_EQ(watcher.next(), "");
}

TEST_F(EventSystem, a_watcher_that_does_not_read_holds_nobody_up) {
    const Watcher watcher("/tmp/watcher");
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(publish("/tmp/watcher"), 0);
    EXPECT_NE(watcher.next(), "");
}

TEST_F(EventSystem, a_watcher_that_is_gone_is_no_error) {
    { const Watcher watcher("/tmp/watcher"); }
    EXPECT_EQ(publish("/tmp/watcher"), 0);
}

TEST_F(EventSystem, a_pipe_without_a_reader_is_no_error) {
    ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
    EXPECT_EQ(publish("/tmp/fifo"), 0);
}

TEST_F(EventSystem, a_place_that_cannot_be_written_is_no_error) {
    EXPECT_EQ(publish("/tmp/no/such/folder"), 0);
    EXPECT_EQ(publish(("/tmp/" + std::string(5000, 'x')).c_str()), 0);
}

TEST_F(EventSystem, an_event_has_a_name) {
    EXPECT_EQ(publish("/tmp/events", ""), EINVAL);
    EXPECT_EQ(publish("/tmp/events", nullptr), EINVAL);
    EXPECT_EQ(content("/tmp/events"), "");
}

TEST_F(EventSystem, the_handle_exists_once_the_library_has_been_opened) {
    EXPECT_EQ(EvtSysEventHandleExist(nullptr), 0);
    EXPECT_EQ(EvtSysLibraryOpen(nullptr), EINVAL);
    EXPECT_EQ(EvtSysEventHandleExist(nullptr), 0);
    void* handle = nullptr;
    EXPECT_EQ(EvtSysLibraryOpen(&handle), 0);
    EXPECT_NE(handle, nullptr);
    EXPECT_EQ(EvtSysEventHandleExist(nullptr), 1);
    EXPECT_EQ(EvtSysEventHandleExist(handle), 1);
}

}  // namespace
}  // namespace quorvel::test
