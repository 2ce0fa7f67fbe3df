// Every step of connect and register can fail.
#include <array>

#include "LinkTest.h"
#include "support/LeakCheck.h"

namespace quorvel::test {
namespace {

class LinkFailure : public LinkTest {
  protected:
    // After a failure the table keeps the number of the descriptor that has been closed.
    void expect_closed_sync_socket_in_the_table() {
        EXPECT_GT(table.SyncSockFd, 0);
        EXPECT_FALSE(is_open(table.SyncSockFd));
        EXPECT_TRUE(trace::contains(trace::text("Created sync socket [%d]\n", table.SyncSockFd)));
    }
};

TEST_F(LinkFailure, no_socket) {
    calls::fail(Call::Socket);
    EXPECT_EQ(init(), -1);
    EXPECT_TRUE(trace::traced(3, "Error creating sync socket. Error = [Too many open files].\n", kUnit));
    EXPECT_EQ(table.SyncSockFd, -1);
}

TEST_F(LinkFailure, no_server_is_published_and_costs_a_second) {
    server.stop();
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(client_id, -1);
    EXPECT_TRUE(trace::traced(
        3, "[QUORVEL] error connecting to server socket. Error = [No such file or directory].\n", kUnit));
    EXPECT_TRUE(trace::traced(0, "EvtSysEventPublish success!!!!!!!!!\n", kUnit));
    EXPECT_TRUE(trace::traced(2, "Published [Sync.Noti.CMServer]", kUnit));
    const std::vector<EventSystemCall> made = platform::event_system_calls();
    ASSERT_EQ(made.size(), 2u);
    EXPECT_EQ(made[0].function, "EvtSysEventHandleExist");
    EXPECT_EQ(made[0].handle, nullptr);
    EXPECT_EQ(made[1].function, "EvtSysEventPublish");
    EXPECT_EQ(made[1].handle, nullptr);
    EXPECT_EQ(made[1].name, "Sync.Noti.CMServer");
    EXPECT_EQ(calls::sleeps(), std::vector<unsigned>{1});
    EXPECT_EQ(table.SyncSockFd, -1);
}

TEST_F(LinkFailure, a_refused_connect_is_named) {
    calls::fail(Call::Connect);
    EXPECT_EQ(init(), -1);
    EXPECT_TRUE(
        trace::traced(3, "[QUORVEL] error connecting to server socket. Error = [Connection refused].\n"));
}

TEST_F(LinkFailure, the_event_system_is_opened_when_it_is_not_there) {
    server.stop();
    platform::set_event_handle_exists(false);
    EXPECT_EQ(init(), -1);
    EXPECT_TRUE(trace::traced(0, "EvtSysLibraryOpen success!!!!!!!!!\n", kUnit));
    EXPECT_EQ(platform::published("Sync.Noti.CMServer"), 1u);
    EXPECT_EQ(calls::sleeps(), std::vector<unsigned>{1});
}

TEST_F(LinkFailure, an_event_system_that_cannot_be_opened_ends_it_at_once_with_the_socket_open) {
    server.stop();
    platform::set_event_handle_exists(false);
    platform::set_event_library_open_result(1);
    const Descriptors before = open_descriptors();
    EXPECT_EQ(init(), -1);
    EXPECT_TRUE(trace::traced(3, "Error EvtSysLibraryOpen()\n", kUnit));
    EXPECT_EQ(platform::published("Sync.Noti.CMServer"), 0u);
    EXPECT_TRUE(calls::sleeps().empty());

    const Descriptors now = open_descriptors();
    EXPECT_EQ(now.size(), before.size() + 1);
    for (const auto& [fd, target] : now) {
        if (before.contains(fd))
            continue;
        EXPECT_TRUE(trace::contains(trace::text("Created sync socket [%d]\n", fd)));
        close(fd);
    }
}

TEST_F(LinkFailure, an_event_that_is_not_published_is_said_to_be_a_success_first) {
    server.stop();
    platform::set_event_publish_result(12);
    EXPECT_EQ(init(), -1);
    EXPECT_TRUE(trace::contains_in_order({"EvtSysEventPublish success!!!!!!!!!\n",
                                          "Failed to publish [Sync.Noti.CMServer] with error code [12]\n"}));
    EXPECT_TRUE(trace::traced(2, "Failed to publish [Sync.Noti.CMServer] with error code [12]\n", kUnit));
    EXPECT_EQ(calls::sleeps(), std::vector<unsigned>{1});
}

TEST_F(LinkFailure, the_registration_cannot_be_sent) {
    calls::fail(Call::Send, 1, EPIPE);
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(client_id, -1);
    EXPECT_TRUE(trace::traced(3, "Error writing to socket, Errno = 32\n", kUnit));
    EXPECT_TRUE(calls::sleeps().empty());
    expect_closed_sync_socket_in_the_table();
}

TEST_F(LinkFailure, the_server_hangs_up_before_it_answers) {
    server.on(wire::NETCM_CLIENT_REGISTER_REQ, hang_up());
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(client_id, -1);
    EXPECT_TRUE(trace::traced(3, "Error reading socket, status = 0 errno = 0\n", kUnit));
    expect_closed_sync_socket_in_the_table();
}

TEST_F(LinkFailure, the_server_does_not_answer_in_time) {
    server.on(wire::NETCM_CLIENT_REGISTER_REQ, silence());
    calls::answer_next_poll(0);
    EXPECT_EQ(init(), -1);
    EXPECT_TRUE(trace::traced(2, "POLLing timeout  \n"));
    EXPECT_TRUE(trace::traced(3, "Error reading socket, status = 0 errno = 0\n", kUnit));
}

TEST_F(LinkFailure, the_answer_is_cut_short) {
    server.on(wire::NETCM_CLIENT_REGISTER_REQ, cut_short(wire::NETCM_CLIENT_REGISTER_REQ, 39));
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(client_id, -1);
}

TEST_F(LinkFailure, the_answer_has_another_code) {
    server.on(wire::NETCM_CLIENT_REGISTER_REQ, wrong_code(101));
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(client_id, -1);
    EXPECT_TRUE(trace::traced(3, "Invalid Response received from CM Server. cmd = 101 \n", kUnit));
    expect_closed_sync_socket_in_the_table();
}

TEST_F(LinkFailure, the_server_refuses) {
    server.on(wire::NETCM_CLIENT_REGISTER_REQ, refusal(wire::NETCM_CLIENT_REGISTER_REQ, 5));
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(client_id, -1);
    EXPECT_TRUE(trace::traced(3, "Client not Registered Error = 5\n", kUnit));
    expect_closed_sync_socket_in_the_table();
}

TEST_F(LinkFailure, no_async_socket) {
    calls::fail(Call::Socket, 2);
    EXPECT_EQ(init(), -1);
    EXPECT_TRUE(trace::traced(3, "Error creating async socket. Error = [Too many open files].\n", kUnit));
    EXPECT_TRUE(trace::traced(4, "Error creating Async Socket \n", kUnit));
    EXPECT_EQ(table.AsyncSockFd, -1);
    expect_closed_sync_socket_in_the_table();
}

TEST_F(LinkFailure, the_async_socket_is_refused) {
    calls::fail(Call::Connect, 2);
    EXPECT_EQ(init(), -1);
    EXPECT_TRUE(
        trace::traced(3, "Error connecting to server socket. Error = [Connection refused].\n", kUnit));
    EXPECT_TRUE(trace::traced(4, "Error creating Async Socket \n", kUnit));
    EXPECT_EQ(platform::published("Sync.Noti.CMServer"), 0u);
    EXPECT_TRUE(calls::sleeps().empty());
    expect_closed_sync_socket_in_the_table();
}

TEST_F(LinkFailure, the_async_registration_cannot_be_sent) {
    calls::fail(Call::Send, 2, EPIPE);
    EXPECT_EQ(init(), -1);
    EXPECT_TRUE(trace::traced(3, "Error writing to socket, errno = 32\n", kUnit));
    EXPECT_TRUE(trace::traced(4, "Error creating Async Socket \n", kUnit));
    EXPECT_EQ(table.AsyncSockFd, -1);
}

TEST_F(LinkFailure, no_pipe) {
    calls::fail(Call::Pipe);
    EXPECT_EQ(init(), -1);
    EXPECT_TRUE(trace::traced(4, "Error creating pipe \n", kUnit));
    EXPECT_EQ(table.RecvThreadId, kNoReceiver);
    expect_closed_sync_socket_in_the_table();
    EXPECT_GT(table.AsyncSockFd, 0);
    EXPECT_FALSE(is_open(table.AsyncSockFd));
}

TEST_F(LinkFailure, no_receiver_thread) {
    calls::fail(Call::ThreadCreate);
    EXPECT_EQ(init(), -1);
    EXPECT_TRUE(trace::traced(4, "CM lib async thread creation failed. Error = [11]\n", kUnit));
    EXPECT_EQ(table.RecvThreadId, kNoReceiver);
    expect_closed_sync_socket_in_the_table();
    EXPECT_FALSE(is_open(table.AsyncSockFd));
}

TEST_F(LinkFailure, each_failing_call_in_turn_leaves_nothing_behind) {
    for (const Call call :
         {Call::Socket, Call::Connect, Call::Send, Call::Pipe, Call::ThreadCreate, Call::Poll, Call::Read}) {
        for (size_t nth = 1;; ++nth) {
            NetCMClientLibInit();
            server.stop();
            const Descriptors before = open_descriptors();
            server.start();
            calls::reset();
            calls::skip_sleeps();
            calls::fail(call, nth);
            const int fd = init();
            if (!calls::has_failed(call)) {
                EXPECT_GT(fd, 0);
                calls::reset();
                NetCMClientExit(fd);
                break;
            }
            EXPECT_EQ(fd, -1) << static_cast<int>(call) << " " << nth;
            server.stop();
            EXPECT_EQ(leaked(before, open_descriptors()), "") << static_cast<int>(call) << " " << nth;
        }
    }
    NetCMClientLibInit();
}

// The lower of its ends has to lie above the sockets: it is moved there when another thread has just closed a
// descriptor below them.
TEST_F(LinkFailure, a_pipe_that_cannot_be_moved) {
    // More than one: the server, which is a thread of this process, may take one for what it accepts.
    std::array<int, 4> low{};
    for (int& fd : low)
        fd = dup(STDIN_FILENO);
    calls::before(Call::Pipe, [low] {
        for (const int fd : low)
            close(fd);
    });
    calls::fail(Call::Fcntl, 1, EMFILE);
    EXPECT_EQ(init(), -1);
    EXPECT_TRUE(calls::has_failed(Call::Fcntl));
    EXPECT_TRUE(trace::traced(4, "Error creating pipe \n", kUnit));
    EXPECT_EQ(table.RecvThreadId, kNoReceiver);
    expect_closed_sync_socket_in_the_table();
    EXPECT_EQ(pipe_fds[0], -1);
    EXPECT_EQ(pipe_fds[1], -1);
}

}  // namespace
}  // namespace quorvel::test
