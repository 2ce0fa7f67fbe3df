// The socket's path: one server at a time, no leftovers, nobody else's file touched.
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>

#include "server/RawClient.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

bool exists(const std::string& path) {
    struct stat found {};
    return lstat(path.c_str(), &found) == 0;
}

mode_t mode_of(const std::string& path) {
    struct stat found {};
    return lstat(path.c_str(), &found) == 0 ? found.st_mode & 0777 : 0;
}

const std::string kPath = wire::kServerPath;
// Where the launcher of the tests says.
const std::string kControlPath = "/tmp/quorvel-run/tmp-psServSocket.control";

class ServerEnds : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(On, ServerEnds, ::testing::Values(SIGTERM, SIGINT, SIGQUIT));

TEST_P(ServerEnds, and_leaves_no_socket_behind) {
    CmServer server;
    EXPECT_TRUE(exists(kPath));
    EXPECT_TRUE(exists(kControlPath));
    server.program().send_signal(GetParam());
    EXPECT_EQ(server.program().wait().status, 0);
    EXPECT_FALSE(exists(kPath));
    EXPECT_FALSE(exists(kControlPath));
}

TEST(ServerPath, is_open_to_every_user_and_control_to_the_owner_alone) {
    CmServer server;
    EXPECT_EQ(mode_of(kPath), 0666u);
    EXPECT_EQ(mode_of(kControlPath), 0600u);
}

TEST(ServerPath, of_a_running_server_is_not_taken) {
    CmServer server;
    const Ended second = run({CM_SERVER_PATH, "--db", ":memory:"});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.err, "cm-server: " + kPath + ": another server is running there: process " +
                              std::to_string(server.program().pid()) + " of user root\n");
    EXPECT_NO_THROW(RawClient());
}

TEST(ServerPath, of_a_killed_server_is_taken_over) {
    {
        CmServer server;
        server.program().send_signal(SIGKILL);
        server.program().wait();
    }
    ASSERT_TRUE(exists(kPath));
    CmServer server;
    EXPECT_NO_THROW(RawClient());
}

TEST(ServerPath, that_is_no_socket_is_left_alone) {
    std::ofstream(kPath) << "precious";
    const Ended ended = run({CM_SERVER_PATH, "--db", ":memory:"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err,
              "cm-server: " + kPath + ": something that is no socket is there; it is left alone\n");
    EXPECT_TRUE(exists(kPath));
}

TEST(ServerPath, that_is_a_socket_of_another_kind_is_left_alone) {
    const int other = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    kPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(other, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(
        run({CM_SERVER_PATH, "--db", ":memory:"}).err,
        "cm-server: " + kPath + ": another server may be running there: Protocol wrong type for socket\n");
    EXPECT_TRUE(exists(kPath));
    close(other);
}

TEST(ServerPath, of_a_killed_server_that_cannot_be_removed_is_told) {
    {
        CmServer server;
        server.program().send_signal(SIGKILL);
        server.program().wait();
    }
    // What something is mounted on cannot be removed.
    ASSERT_EQ(mount(kPath.c_str(), kPath.c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(
        run({CM_SERVER_PATH, "--db", ":memory:"}).err,
        "cm-server: " + kPath + ": a dead server's socket cannot be removed: Device or resource busy\n");
    umount2(kPath.c_str(), MNT_DETACH);
}

TEST(ServerPath, in_no_folder_is_refused) {
    EXPECT_EQ(run({CM_SERVER_PATH, "--db", ":memory:", "--socket", "/tmp/absent/socket"}).err,
              "cm-server: /tmp/absent/socket: cannot listen there: No such file or directory\n");
    EXPECT_EQ(run({CM_SERVER_PATH, "--db", ":memory:", "--socket", ""}).status, 1);
}

TEST(ServerPath, can_be_another_one) {
    CmServer server("", {"--socket", "/tmp/elsewhere"});
    EXPECT_TRUE(exists("/tmp/elsewhere"));
    EXPECT_FALSE(exists(kPath));
}

TEST(ServerPath, that_is_too_long_is_refused) {
    const Ended ended =
        run({CM_SERVER_PATH, "--db", ":memory:", "--socket", "/tmp/" + std::string(200, 'x')});
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("no usable path for a socket"), std::string::npos);
}

TEST(ServerProgram, explains_itself) {
    const Ended help = run({CM_SERVER_PATH, "--help"});
    EXPECT_EQ(help.status, 0);
    for (const char* word : {"--socket", "--config", "--db", "--log-level", "ctl"})
        EXPECT_NE(help.out.find(word), std::string::npos) << word;
    const Ended version = run({CM_SERVER_PATH, "--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out.find("cm-server "), 0u);
}

}  // namespace
}  // namespace quorvel::test
