// Others on the same machine: who may control the server, and what becomes of a socket that somebody takes
// away.
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "control/control.h"
#include "server/RawClient.h"
#include "server/Stranger.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

const std::string kPath = wire::kServerPath;
// Where the launcher of the tests says.
const std::string kControlPath = "/tmp/quorvel-run/tmp-psServSocket.control";

TEST(ServerControl, is_for_its_own_user_and_root_alone) {
    EXPECT_TRUE(cm::may_control({.pid = 1, .uid = geteuid()}));
    EXPECT_TRUE(cm::may_control({.pid = 1, .uid = 0}));
    EXPECT_FALSE(cm::may_control({.pid = 1, .uid = kStranger}));
    // What stands for a peer whose credentials the kernel does not tell.
    EXPECT_FALSE(cm::may_control({.pid = 0, .uid = static_cast<uid_t>(-1)}));
}

int connected(const std::string& path) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path.c_str());
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0)
        return fd;
    const int error = errno;
    ::close(fd);
    return -error;
}

// A process can take another user's place only where it is root of more than itself.
class Stranger : public ::testing::Test {
  public:
    void SetUp() override {
        if (as_stranger([] { return true; }) != 0)
            GTEST_SKIP() << "only root can start a process of another user; "
                            "ServerControl.is_for_its_own_user_and_root_alone tests the rule";
    }

    CmServer server;
};

TEST_F(Stranger, cannot_reach_the_operator_s_socket) {
    EXPECT_EQ(as_stranger([] { return connected(kControlPath) == -EACCES; }), 0);
}

TEST_F(Stranger, is_not_heard_even_where_the_file_lets_him_in) {
    ASSERT_EQ(chmod(kControlPath.c_str(), 0666), 0);
    const int result = as_stranger([] {
        const int fd = connected(kControlPath);
        constexpr std::string_view kCommand = "{\"command\": \"list\"}\n";
        char byte = 0;
        // The server may have closed before it is told anything.
        (void)!send(fd, kCommand.data(), kCommand.size(), MSG_NOSIGNAL);
        return fd >= 0 && recv(fd, &byte, 1, 0) <= 0;
    });
    EXPECT_EQ(result, 0);
    server.program().wait_for_err("of user 65534 may not control this server");
}

TEST_F(Stranger, cannot_take_the_sockets_away) {
    for (const std::string& path : {kPath, kControlPath})
        EXPECT_EQ(
            as_stranger([&] { return unlink(path.c_str()) != 0 && rename(path.c_str(), "/tmp/mine") != 0; }),
            0)
            << path;
}

TEST_F(Stranger, is_served_as_a_client_all_the_same) {
    EXPECT_EQ(as_stranger([] { return RawClient().open(1) == 0; }), 0);
}

// A socket that somebody else listens on at the path.
class Impostor {
  public:
    explicit Impostor(const std::string& path) : fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, path.c_str());
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(fd_, 5), 0);
    }
    ~Impostor() { ::close(fd_); }
    Impostor(const Impostor&) = delete;
    Impostor& operator=(const Impostor&) = delete;

  private:
    int fd_;
};

TEST(OperatorsSocket, is_where_nobody_else_can_be_first) {
    // Where everybody may make something, and the server would once have had its place.
    const Impostor impostor(kPath + ".control");
    CmServer server;
    EXPECT_NE(server.ctl({"list"}), "");
}

TEST(OperatorsSocket, is_beside_the_server_s_where_the_folder_is_its_user_s_own) {
    ASSERT_EQ(mkdir("/tmp/own", 0700), 0);
    Program server({CM_SERVER_PATH, "--db", ":memory:", "--socket", "/tmp/own/socket"});
    server.wait_for_err("listening on");
    EXPECT_EQ(access("/tmp/own/socket.control", F_OK), 0);
    EXPECT_EQ(run({CM_SERVER_PATH, "--socket", "/tmp/own/socket", "ctl", "list"}).status, 0);
}

TEST(OperatorsSocket, is_not_in_a_folder_that_others_can_write_to) {
    // The machine's own folder is not for tests.
    ASSERT_EQ(mount("tmpfs", "/run", "tmpfs", 0, nullptr), 0);
    ASSERT_EQ(mkdir("/tmp/quorvel-run", 0777), 0);
    ASSERT_EQ(chmod("/tmp/quorvel-run", 0777), 0);
    Program server(
        {"env", "HOME=/tmp/home", "XDG_RUNTIME_DIR=/tmp/runtime", CM_SERVER_PATH, "--db", ":memory:"});
    server.wait_for_err("listening on");
    EXPECT_NE(access(kControlPath.c_str(), F_OK), 0);
}

TEST(OperatorsSocket, without_a_folder_is_no_start) {
    ASSERT_EQ(mount("tmpfs", "/run", "tmpfs", MS_RDONLY, nullptr), 0);
    const Ended ended = run({"env", "-i", CM_SERVER_PATH, "--db", ":memory:"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(
        ended.err.find("cm-server: there is no folder of this user's own for the operator's socket; name "
                       "one with RUNTIME_DIRECTORY\n"),
        std::string::npos)
        << ended.err;
}

// The service manager's end of a socket that it opens before the server starts.
TEST(SocketOfTheServiceManager, is_used_and_left_where_it_is) {
    constexpr const char* kActivate = "/usr/bin/systemd-socket-activate";
    if (access(kActivate, X_OK) != 0)
        GTEST_SKIP() << "systemd-socket-activate is not installed";
    for (int life = 0; life < 2; ++life) {
        Program server({kActivate, "--setenv=RUNTIME_DIRECTORY=/tmp/quorvel-run", "--listen", kPath,
                        CM_SERVER_PATH, "--db", ":memory:"});
        server.wait_for_err("Listening on");
        RawClient client;
        EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2, 1u);
        server.send_signal(SIGTERM);
        EXPECT_EQ(server.wait().status, 0);
        struct stat found {};
        EXPECT_EQ(lstat(kPath.c_str(), &found), 0);
        ASSERT_EQ(unlink(kPath.c_str()), 0);
    }
}

class SocketOnItsPath : public ::testing::TestWithParam<std::string> {
  public:
    void wait_for(const std::string& what) { server.program().wait_for_err(what); }
    void expect_taken_again() {
        wait_for("info: listening on " + GetParam() + " again");
        EXPECT_NO_THROW(RawClient());
        EXPECT_NE(server.ctl({"list"}), "");
    }

    CmServer server;
    RawClient client;
};
INSTANTIATE_TEST_SUITE_P(Of, SocketOnItsPath, ::testing::Values(kPath, kControlPath),
                         [](const auto& path) { return path.param == kPath ? "Clients" : "Operators"; });

TEST_P(SocketOnItsPath, is_taken_again_when_somebody_has_removed_it) {
    ASSERT_EQ(unlink(GetParam().c_str()), 0);
    wait_for("error: " + GetParam() + ": somebody has removed this server's socket");
    expect_taken_again();
}

TEST_P(SocketOnItsPath, is_taken_again_when_somebody_has_moved_it) {
    ASSERT_EQ(rename(GetParam().c_str(), "/tmp/elsewhere"), 0);
    wait_for("error: " + GetParam() + ": somebody has removed this server's socket");
    expect_taken_again();
}

TEST_P(SocketOnItsPath, is_missed_when_somebody_has_replaced_it_and_taken_again_when_he_has_gone) {
    {
        const Impostor impostor("/tmp/impostor");
        ASSERT_EQ(rename("/tmp/impostor", GetParam().c_str()), 0);
        wait_for("error: " + GetParam() +
                 ": somebody has replaced this server's socket by a socket of user " +
                 std::to_string(geteuid()));
        wait_for("error: new clients are not served: " + GetParam() + ": another server is running there");
        EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2, 1u);
    }
    expect_taken_again();
}

TEST_P(SocketOnItsPath, is_missed_when_somebody_has_put_something_else_there) {
    std::ofstream("/tmp/precious") << "precious";
    ASSERT_EQ(rename("/tmp/precious", GetParam().c_str()), 0);
    wait_for("somebody has replaced this server's socket by something else of user");
    wait_for("something that is no socket is there; it is left alone");
    ASSERT_EQ(unlink(GetParam().c_str()), 0);
    expect_taken_again();
}

TEST_P(SocketOnItsPath, of_somebody_else_is_not_removed_at_the_end) {
    const Impostor impostor("/tmp/impostor");
    ASSERT_EQ(rename("/tmp/impostor", GetParam().c_str()), 0);
    wait_for("another server is running there");
    EXPECT_EQ(server.stop().status, 0);
    struct stat found {};
    EXPECT_EQ(lstat(GetParam().c_str(), &found), 0);
}

}  // namespace
}  // namespace quorvel::test
